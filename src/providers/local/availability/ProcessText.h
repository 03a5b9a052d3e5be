// The texts of one process as filters compare them: without regard to the case of ASCII letters. Pure functions of bytes.
#pragma once

#include <string>
#include <string_view>

// ASCII letters as small ones; other bytes stay.
std::string folded(std::string_view text);

// Cuts a text at each byte of a set, as StringTokenizer does: between two delimiters stands an empty token, behind one at
// the end none.
class TokenWalk {
  public:
    TokenWalk(std::string_view text, std::string_view delimiters) : text_(text), delimiters_(delimiters) {}
    bool next(std::string_view* token);

  private:
    std::string_view text_;
    std::string_view delimiters_;
    std::size_t at_ = 0;
};

// Whether one of the tokens of a command line, cut at white space, is the argument.
bool hasArgument(std::string_view commandLine, std::string_view argument);
// Whether a token of the command line, cut at white space and '=', is the argument and the token behind it the value. The
// scan goes on behind the value.
bool hasArgumentWithValue(std::string_view commandLine, std::string_view argument, std::string_view value);

// One process; its folded forms are made when they are first asked for. An object serves one process after the other.
class ProcessText {
  public:
    // The texts are terminated and must stay until the next call.
    void set(const char* baseName, const char* fullName, const char* commandLine);
    std::string_view baseName() const { return base_; }
    std::string_view fullName();
    std::string_view commandLine();

  private:
    std::string base_;
    std::string full_;
    std::string command_;
    const char* fullName_ = nullptr;  // null once it is folded
    const char* commandLine_ = nullptr;
};
