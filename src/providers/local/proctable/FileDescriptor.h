// Owns a file descriptor.
#pragma once

#include <unistd.h>

class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (isOpen()) ::close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    bool isOpen() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

// read(2), again after a signal. Bytes read, 0 at the end of the file, -1 with errno.
ssize_t readOnce(int descriptor, void* buffer, std::size_t size);
