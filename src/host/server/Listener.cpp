#include "host/server/Listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/base/Descriptor.h"

namespace almanac::host {
namespace {

constexpr int kBacklog = 128;

int fail(const std::string& what, std::string* error) {
    *error = what + ": " + std::strerror(errno);
    return -1;
}

enum class Occupant { None, Stale, Alive, Other };

// Who stands at the path. A socket that refuses connections has no listener any more.
Occupant occupantOf(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return errno == ENOENT ? Occupant::None : Occupant::Other;
    if (!S_ISSOCK(status.st_mode)) return Occupant::Other;
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (probe.get() < 0) return Occupant::Other;
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return Occupant::Alive;
    if (errno == ECONNREFUSED) return Occupant::Stale;
    return errno == EAGAIN ? Occupant::Alive : Occupant::Other;
}

}  // namespace

int openUnixListener(const std::string& path, std::string* error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        *error = "socket path '" + path + "' is empty or longer than " +
                 std::to_string(sizeof address.sun_path - 1) + " bytes";
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    switch (occupantOf(path, address)) {
        case Occupant::None:
            break;
        case Occupant::Stale:
            if (unlink(path.c_str()) != 0 && errno != ENOENT) return fail(path, error);
            break;
        case Occupant::Alive:
            *error = "socket " + path + " is in use";
            return -1;
        case Occupant::Other:
            *error = path + " exists and is no socket of ours";
            return -1;
    }
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0) return fail(path, error);
    // On Linux the file takes the socket's own mode, so that nobody else can connect at any moment (unix(7)).
    if (fchmod(fd.get(), 0600) != 0 ||
        bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        chmod(path.c_str(), 0600) != 0 || listen(fd.get(), kBacklog) != 0)
        return fail("socket " + path, error);
    return fd.release();
}

int openTcpListener(unsigned short* port, std::string* error) {
    const std::string name = "127.0.0.1:" + std::to_string(*port);
    Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0) return fail(name, error);
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(*port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), kBacklog) != 0 ||
        getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return fail(name, error);
    *port = ntohs(address.sin_port);
    return fd.release();
}

}  // namespace almanac::host
