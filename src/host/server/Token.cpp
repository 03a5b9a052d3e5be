#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "host/server/Api.h"

namespace almanac::host {
namespace {

constexpr std::size_t kBytes = 32;

std::string tokenPath(const std::string& dataDirectory) { return dataDirectory + "/token"; }

// Does not stop at the first difference.
bool equalInConstantTime(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    volatile unsigned char difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference = static_cast<unsigned char>(difference | static_cast<unsigned char>(a[i] ^ b[i]));
    return difference == 0;
}

constexpr std::size_t kMaxFile = 16384;
constexpr std::size_t kShortest = 16;

// A token file that is the owner's alone; "" for anything else.
std::string readTokens(const std::string& dataDirectory) {
    const int fd = open(tokenPath(dataDirectory).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) return "";
    std::string text(kMaxFile + 1, '\0');
    struct stat status {};
    ssize_t length = -1;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 077) == 0 &&
        status.st_uid == geteuid())
        length = read(fd, text.data(), text.size());
    close(fd);
    if (length < 0 || static_cast<std::size_t>(length) > kMaxFile) return "";
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// One line: the token, then perhaps name=WHO and rights. Without any right all of them; an unknown word gives none.
TokenHolder holderOf(std::istringstream& words) {
    TokenHolder holder;
    bool limited = false;
    for (std::string word; words >> word;) {
        if (word.starts_with("name=")) {
            holder.name = word.substr(5);
            continue;
        }
        limited = true;
        holder.trace = holder.trace || word == "trace";
        holder.actions = holder.actions || word == "actions";
        holder.commands = holder.commands || word == "commands";
    }
    if (!limited) holder.trace = holder.actions = holder.commands = true;
    holder.actions = holder.actions || holder.commands;
    return holder;
}

}  // namespace

bool prepareToken(const std::string& dataDirectory, std::string* error) {
    const std::string path = tokenPath(dataDirectory);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0 && errno == EEXIST) return true;
    unsigned char bytes[kBytes];
    bool good = fd >= 0 && getrandom(bytes, sizeof bytes, 0) == static_cast<ssize_t>(sizeof bytes);
    if (good) {
        std::string text;
        for (const unsigned char byte : bytes) {
            text += "0123456789abcdef"[byte >> 4];
            text += "0123456789abcdef"[byte & 15];
        }
        text += '\n';
        good = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    }
    if (!good) *error = path + ": " + std::strerror(errno);
    if (fd >= 0) {
        close(fd);
        if (!good) unlink(path.c_str());
    }
    return good;
}

std::optional<TokenHolder> tokenHolder(const std::string& dataDirectory, const std::string& presented) {
    std::istringstream lines(readTokens(dataDirectory));
    std::optional<TokenHolder> found;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string token;
        words >> token;
        if (token.size() >= kShortest && equalInConstantTime(token, presented) && !found) found = holderOf(words);
    }
    return found;
}

}  // namespace almanac::host
