#include "providers/local/proctable/FileProc.h"

#include <cerrno>

#include "providers/local/proctable/FileDescriptor.h"
#include "providers/local/proctable/ProcText.h"

FileBase::FileBase(const char* name, int streamMode, int fileMode) : mode_(fileMode) {
    std::ios::openmode mode = mode_ == 0 ? std::ios::in : std::ios::out;
    if (streamMode != 1) mode |= std::ios::binary;
    stream_.open(name, mode);
}

bool FileBase::GetNextLine(char* buffer) {
    buffer[0] = '\0';
    stream_.getline(buffer, kLongestProcLine + 1);
    return stream_.good();
}

bool FileBase::WriteNextLine(const char* text) {
    stream_ << text << '\n';
    return stream_.good();
}

ssize_t readOnce(int descriptor, void* buffer, std::size_t size) {
    ssize_t got = -1;
    do {
        got = ::read(descriptor, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}
