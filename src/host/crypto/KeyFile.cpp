#include "host/crypto/KeyFile.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/base/Descriptor.h"
#include "host/base/Paths.h"

namespace almanac::host {
namespace {

bool fail(std::string* error, const std::string& text) {
    if (error) *error = text;
    return false;
}

bool failWithErrno(std::string* error, const std::string& path) {
    return fail(error, "key file " + path + ": " + std::strerror(errno));
}

bool isPrivate(int fd, const std::string& path, std::string* error) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) return failWithErrno(error, path);
    if (!S_ISREG(info.st_mode)) return fail(error, "key file " + path + " is no regular file");
    if (info.st_uid != geteuid()) return fail(error, "key file " + path + " belongs to another user");
    if ((info.st_mode & 0077) != 0) {
        return fail(error, "key file " + path + " is open to group or others; its mode must be 0600");
    }
    if (info.st_size != static_cast<off_t>(Key::kSize)) {
        return fail(error, "key file " + path + " does not hold " + std::to_string(Key::kSize) + " bytes");
    }
    return true;
}

bool readBytes(int fd, Key* key) {
    for (std::size_t got = 0; got < Key::kSize;) {
        const ssize_t count = ::read(fd, key->data() + got, Key::kSize - got);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        got += static_cast<std::size_t>(count);
    }
    return true;
}

bool writeBytes(int fd, const Key& key) {
    for (std::size_t put = 0; put < Key::kSize;) {
        const ssize_t count = ::write(fd, key.data() + put, Key::kSize - put);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        put += static_cast<std::size_t>(count);
    }
    return ::fsync(fd) == 0;
}

// Gives the finished file its name only if nobody else has: link(2) never replaces. File systems without hard
// links have the same in renameat2(2).
bool giveName(const std::string& from, const std::string& to) {
    if (::link(from.c_str(), to.c_str()) == 0 || errno == EEXIST) return true;
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0 ||
           errno == EEXIST;
}

bool makeKeyFile(const std::string& path, std::string* error) {
    static std::atomic<unsigned> attempts{0};
    if (!prepareDataDirectory(error)) return false;
    const std::string part = path + "." + std::to_string(::getpid()) + "." + std::to_string(++attempts);
    ::unlink(part.c_str());  // left by a process of this number that was killed
    bool done = false;
    {
        const Descriptor file(
            ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file.get() < 0) return failWithErrno(error, part);
        Key fresh;
        if (RAND_bytes(fresh.data(), static_cast<int>(Key::kSize)) != 1) {
            fail(error, "no random numbers for key file " + path);
        } else if (!writeBytes(file.get(), fresh) || !giveName(part, path)) {
            failWithErrno(error, path);
        } else {
            done = true;
        }
    }
    ::unlink(part.c_str());
    const Descriptor directory(::open(dataDirectory().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0) ::fsync(directory.get());
    return done;
}

}  // namespace

Key::~Key() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

std::string keyFilePath() { return dataDirectory() + "/key"; }

bool readKeyFile(bool make, Key* key, std::string* error) {
    const std::string path = keyFilePath();
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int fd = ::open(path.c_str(), kFlags);
    if (fd < 0 && errno == ENOENT && make) {
        if (!makeKeyFile(path, error)) return false;
        fd = ::open(path.c_str(), kFlags);
    }
    const Descriptor file(fd);
    if (file.get() < 0) {
        return errno == ELOOP ? fail(error, "key file " + path + " is a symbolic link")
                              : failWithErrno(error, path);
    }
    if (!isPrivate(file.get(), path, error)) return false;
    return readBytes(file.get(), key) || fail(error, "key file " + path + " cannot be read");
}

}  // namespace almanac::host
