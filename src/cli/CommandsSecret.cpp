// encrypt: a value for the configuration file.
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>

#include "cli/Commands.h"
#include "host/base/Paths.h"
#include "platform/zcp.h"

namespace almanac::cli {

namespace {

// Switches the terminal's echo off for its lifetime.
class NoEcho {
  public:
    NoEcho() {
        if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        active_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~NoEcho() {
        if (active_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    NoEcho(const NoEcho&) = delete;
    NoEcho& operator=(const NoEcho&) = delete;

  private:
    termios before_{};
    bool active_ = false;
};

}  // namespace

int encryptValue() {
    std::string error;
    if (!host::prepareDataDirectory(&error)) {
        complain(error);
        return kConfiguration;
    }
    std::string value;
    if (isatty(STDIN_FILENO)) {
        const NoEcho quiet;
        std::fputs("Value: ", stderr);
        std::getline(std::cin, value);
        std::fputs("\n", stderr);
    } else {
        std::getline(std::cin, value);
    }
    if (value.empty()) {
        complain("no value was given on standard input");
        return kUsage;
    }
    char* encrypted = nullptr;
    const int status = ZCP_Encrypt(value.c_str(), "AES256", "keyfile", &encrypted);
    explicit_bzero(value.data(), value.size());
    if (status != ZCP_OK) {
        complain(status == ZCP_NO_KEY ? "the key file " + host::dataDirectory() + "/key cannot be used" : "the value could not be encrypted");
        return status == ZCP_NO_KEY ? kConfiguration : kFailed;
    }
    std::puts(encrypted);
    ZCP_Free(encrypted);
    return kDone;
}

}  // namespace almanac::cli
