// A client that sends bytes as they are and reads answers one by one.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace almanac::host::test {

struct Answer {
    int status = 0;  // 0: the connection ended without an answer
    std::string header, body;

    bool has(const std::string& text) const { return (header + body).find(text) != std::string::npos; }
};

class Client {
  public:
    explicit Client(const std::string& socketPath) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    explicit Client(unsigned short port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Client() { close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return connected_; }
    bool send(const std::string& bytes) {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    void endSending() { shutdown(fd_, SHUT_WR); }

    // The next answer; its body by Content-Length, which every answer but 204 has.
    Answer read(bool head = false) {
        Answer answer;
        std::size_t end;
        while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) {
            if (!more()) return answer;
        }
        answer.header = buffer_.substr(0, end + 4);
        buffer_.erase(0, end + 4);
        answer.status = std::atoi(answer.header.substr(9, 3).c_str());
        const std::size_t field = answer.header.find("Content-Length: ");
        const std::size_t length = head || field == std::string::npos
                                       ? 0
                                       : std::strtoul(answer.header.c_str() + field + 16, nullptr, 10);
        while (buffer_.size() < length) {
            if (!more()) return Answer();
        }
        answer.body = buffer_.substr(0, length);
        buffer_.erase(0, length);
        return answer;
    }
    // True if the peer closes within ten seconds without sending more.
    bool closed() { return buffer_.empty() && !more() && !timedOut_; }

    Answer get(const std::string& target, const std::string& fields = "") {
        send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n");
        return read();
    }

  private:
    bool more() {
        pollfd wait{fd_, POLLIN, 0};
        timedOut_ = poll(&wait, 1, 10000) == 0;
        if (timedOut_) return false;
        char bytes[65536];
        const ssize_t length = recv(fd_, bytes, sizeof bytes, 0);
        if (length <= 0) return false;
        buffer_.append(bytes, static_cast<std::size_t>(length));
        return true;
    }

    int fd_ = -1;
    bool connected_ = false, timedOut_ = false;
    std::string buffer_;
};

// A directory for one test, removed with all in it.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        char name[] = "/tmp/almanac-test-XXXXXX";
        path_ = mkdtemp(name);
    }
    ~TemporaryDirectory() { (void)!std::system(("rm -rf '" + path_ + "'").c_str()); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace almanac::host::test
