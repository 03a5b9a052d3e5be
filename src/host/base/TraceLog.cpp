#include "host/base/TraceLog.h"

#include <fcntl.h>
#include <poll.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/base/Paths.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr std::size_t kInventoryLimit = 1024 * 1024;
constexpr int kStallMillis = 100;  // how long standard error may hold a line up, once

int numberOption(const std::string& value, int least, int most, int otherwise) {
    char* end = nullptr;
    const long number = std::strtol(value.c_str(), &end, 10);
    return end == value.c_str() || *end != '\0' || number < least || number > most ? otherwise
                                                                                   : static_cast<int>(number);
}

void setOption(TraceLogSettings* settings, const std::string& name, const std::string& value) {
    const auto is = [&](const char* other) { return strcasecmp(name.c_str(), other) == 0; };
    if (is("INVENTORY")) settings->inventory = value;
    if (is("COUNT")) settings->count = numberOption(value, 1, 99, settings->count);
    if (is("LIMIT")) settings->limit = numberOption(value, 1, 1024, settings->limit);
    if (is("PRESERVE")) settings->preserve = numberOption(value, 0, 98, settings->preserve);
    if (is("MAXFILES")) settings->maxFiles = numberOption(value, 1, 1000, settings->maxFiles);
}

void replaceAll(std::string* text, const std::string& what, const std::string& with) {
    for (std::size_t at = text->find(what); at != std::string::npos;
         at = text->find(what, at + with.size())) {
        text->replace(at, what.size(), with);
    }
}

std::string startInHex() {
    static const timespec start = [] {
        timespec now{};
        ZSV1_GetTime(&now);
        return now;
    }();
    char text[32];
    std::snprintf(text, sizeof text, "%08llx", static_cast<unsigned long long>(start.tv_sec));
    return text;
}

void splitFileName(const std::string& name, TraceLogSettings* settings) {
    const std::size_t mark = name.rfind("-.");
    if (mark != std::string::npos) {
        settings->stem = name.substr(0, mark + 1);
        settings->suffix = name.substr(mark + 1);
        return;
    }
    const std::size_t slash = name.rfind('/');
    const std::size_t dot = name.rfind('.');
    const bool hasSuffix =
        dot != std::string::npos && (slash == std::string::npos || dot > slash + 1) && dot > 0;
    settings->stem = (hasSuffix ? name.substr(0, dot) : name) + "-";
    settings->suffix = hasSuffix ? name.substr(dot) : "";
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// True for a name that ends with "-", two digits and the suffix.
bool isNumbered(const std::string& path, const std::string& suffix) {
    if (path.size() < suffix.size() + 3 || !path.ends_with(suffix)) return false;
    const char* const number = path.data() + path.size() - suffix.size() - 3;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return number[0] == '-' && isDigit(number[1]) && isDigit(number[2]);
}

bool hasControlByte(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

}  // namespace

TraceLogSettings TraceLogSettings::parse(const std::string& given) {
    TraceLogSettings settings;
    std::string text = given;
    if (!text.empty() && text.front() == '"') text.erase(0, 1);
    if (!text.empty() && text.back() == '"') text.pop_back();
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos || hasControlByte(text)) return settings;
    const std::size_t mark = text.find("-.", begin);  // a blank may stand in the path before it
    std::size_t at =
        std::min(text.find_first_of(" \t", mark == std::string::npos ? begin : mark), text.size());
    std::string name = text.substr(begin, at - begin);
    while ((at = text.find_first_not_of(" \t", at)) != std::string::npos) {
        const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
        const std::string option = text.substr(at, end - at);
        const std::size_t equals = option.find('=');
        if (equals != std::string::npos)
            setOption(&settings, option.substr(0, equals), option.substr(equals + 1));
        at = end;
    }
    settings.preserve = std::min(settings.preserve, settings.count - 1);
    for (std::string* path : {&name, &settings.inventory}) {
        replaceAll(path, "(systask)", programName());
        replaceAll(path, "(sysutcstart)", startInHex());
    }
    splitFileName(name, &settings);
    return settings;
}

std::string TraceLogSettings::fileName(int number) const {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%02d", number);
    return stem + digits + suffix;
}

std::string inventoryWith(const std::string& inventory, const std::string& path, int maxFiles,
                          std::vector<std::string>* removed) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < inventory.size();) {
        const std::size_t end = std::min(inventory.find('\n', at), inventory.size());
        const std::string line = inventory.substr(at, end - at);
        if (!line.empty() && line != path) lines.push_back(line);
        at = end + 1;
    }
    lines.push_back(path);
    const auto most = static_cast<std::size_t>(std::max(maxFiles, 1));
    const std::size_t out = lines.size() > most ? lines.size() - most : 0;
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i < out) {
            removed->push_back(lines[i]);
        } else {
            text += lines[i] + "\n";
        }
    }
    return text;
}

TraceLog::~TraceLog() { closeFile(); }

void TraceLog::closeFile() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void TraceLog::configure(TraceLogSettings settings, std::int64_t fileSize) {
    closeFile();
    settings_ = std::move(settings);
    fileLimit_ = fileSize > 0 ? fileSize : static_cast<std::int64_t>(settings_.limit) * 1024 * 1024;
    number_ = 0;
    size_ = 0;
    started_ = failed_ = torn_ = false;
}

void TraceLog::write(std::string_view line) {
    if (!ensureOpen()) {
        writeStandardError(line);
        return;
    }
    if (size_ > 0 && size_ + static_cast<std::int64_t>(line.size()) > fileLimit_) rotate();
    if (fd_ < 0) {
        writeStandardError(line);
        return;
    }
    if (unreported_ > 0) {
        const std::string note = "(" + std::to_string(unreported_) + " trace lines were lost here)\n";
        if (writeFile(note)) unreported_ = 0;
    }
    if (!writeFile(line)) {
        ++dropped_;
        ++unreported_;
    }
}

bool TraceLog::ensureOpen() {
    if (fd_ >= 0) return true;
    if (settings_.stem.empty() || failed_) return false;
    const int number = started_ ? number_ : firstNumber();
    if (openNumber(number, false)) return true;
    failed_ = true;  // not tried again: a line must not cost an open that fails each time
    const std::string note = "cannot write trace log " + settings_.fileName(number) + ": " +
                             std::strerror(errno) + "; using stderr\n";
    writeStandardError(note);
    return false;
}

// Goes on where the last run with this name stopped: the newest of the files.
int TraceLog::firstNumber() const {
    int newest = 1;
    timespec latest{};
    for (int number = 1; number <= settings_.count; ++number) {
        struct stat info {};
        if (::lstat(settings_.fileName(number).c_str(), &info) != 0) continue;
        const timespec& time = info.st_mtim;
        if (time.tv_sec < latest.tv_sec || (time.tv_sec == latest.tv_sec && time.tv_nsec < latest.tv_nsec))
            continue;
        latest = time;
        newest = number;
    }
    return newest;
}

bool TraceLog::openNumber(int number, bool truncate) {
    const std::string path = settings_.fileName(number);
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    const int fd = ::open(path.c_str(), flags, 0600);
    if (fd < 0) return false;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return false;
    }
    if (truncate && ::ftruncate(fd, 0) == 0) info.st_size = 0;
    closeFile();
    fd_ = fd;
    number_ = number;
    size_ = info.st_size;
    started_ = true;
    updateInventory(path);
    return true;
}

void TraceLog::rotate() {
    const int next = number_ >= settings_.count ? settings_.preserve + 1 : number_ + 1;
    if (!openNumber(next, true)) {
        closeFile();
        failed_ = true;
    }
}

// A file is only deleted if it looks like one of ours: in the log's folder, numbered, with the log's suffix.
// Whoever holds the inventory keeps others out for a moment; then this run's entry waits for the next
// rotation.
void TraceLog::updateInventory(const std::string& path) const {
    if (settings_.inventory.empty()) return;
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    const int fd = ::open(settings_.inventory.c_str(), flags, 0600);
    if (fd < 0) return;
    struct stat info {};
    std::string text;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
        static_cast<std::size_t>(info.st_size) <= kInventoryLimit) {
        text.resize(static_cast<std::size_t>(info.st_size));
        const ssize_t got = ::pread(fd, text.data(), text.size(), 0);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        std::vector<std::string> removed;
        text = inventoryWith(text, path, std::max(settings_.maxFiles, settings_.count), &removed);
        for (const std::string& old : removed) {
            if (directoryOf(old) == directoryOf(path) && isNumbered(old, settings_.suffix))
                ::unlink(old.c_str());
        }
        const ssize_t put = ::pwrite(fd, text.data(), text.size(), 0);
        if (put >= 0 && ::ftruncate(fd, put) != 0) text.clear();
    }
    ::close(fd);
}

bool TraceLog::writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        size_ += count;
        torn_ = text[static_cast<std::size_t>(count) - 1] != '\n';
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool TraceLog::writeFile(std::string_view line) {
    if (torn_ && !writeAll(fd_, "\n")) return false;
    return writeAll(fd_, line);
}

// Standard error may be a pipe or a terminal that somebody else shares, so it cannot be made non-blocking.
// Where poll(2) says that it takes data, PIPE_BUF bytes go in without waiting (pipe(7)).
void TraceLog::writeStandardError(std::string_view line) {
    for (std::string_view rest = line; !rest.empty();) {
        pollfd ready{STDERR_FILENO, POLLOUT, 0};
        const bool takes = ::poll(&ready, 1, stalled_ ? 0 : kStallMillis) == 1 &&
                           (ready.revents & POLLOUT) != 0 && (ready.revents & (POLLERR | POLLNVAL)) == 0;
        const ssize_t count =
            takes ? ::write(STDERR_FILENO, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF)) : -1;
        stalled_ = !takes;
        if (count <= 0) {
            ++dropped_;
            return;
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
}

}  // namespace almanac::host
