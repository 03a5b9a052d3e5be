// Files read and written line by line.
#pragma once

#include <fstream>
#include <string>

class FileBase {
  public:
    // Stream mode 1 is text, any other one binary; file mode 0 opens for reading, any other one for writing.
    FileBase(const char* name, int streamMode, int fileMode);
    virtual ~FileBase() = default;

    bool isOpen() const { return stream_.is_open(); }
    bool isStateGood() const { return stream_.good(); }
    // Reads up to 1,023 bytes and a line end, which is not stored, into a buffer of 1,024; terminates. Kept: false for a
    // line that is longer, and for a last line without a line end.
    bool GetNextLine(char* buffer);
    // Writes the text and a line end; whether the stream is still good.
    bool WriteNextLine(const char* text);

  private:
    std::fstream stream_;
    int mode_;
};

class FileProc : public FileBase {
  public:
    explicit FileProc(const std::string& name) : FileBase(name.c_str(), 1, 0), name_(name) {}
    const std::string& name() const { return name_; }

  private:
    std::string name_;
};
