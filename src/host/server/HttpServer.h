// HTTP/1.1 (RFC 9112) on a unix socket and, if asked for, on 127.0.0.1: one thread, bounded in everything,
// with timers only while a connection exists.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/server/ApiMessage.h"

namespace almanac::host {

struct HttpLimits {
    std::size_t header = std::size_t{16} * 1024;  // bytes of request line and header fields
    std::size_t body = std::size_t{64} * 1024;
    std::size_t connections = 256;             // further ones get 503 and are closed
    std::chrono::milliseconds idle{60000};     // between requests, and while an answer makes no headway
    std::chrono::milliseconds request{15000};  // from a request's first byte to its last
};

class HttpServer {
  public:
    using Handler = std::function<std::optional<ApiDeadline>(const ApiRequest&, Respond)>;

    explicit HttpServer(Handler handler, const HttpLimits& limits = HttpLimits());
    ~HttpServer();  // stops
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Listens on a unix socket of mode 0600. A socket file on which nobody listens is replaced; the caller
    // holds the lock that keeps two agents from doing so at once. False with one line in `error`.
    bool listenUnix(const std::string& path, std::string* error);
    // Listens on 127.0.0.1; port 0 takes any free one. False with one line in `error`.
    bool listenTcp(unsigned short port, std::string* error);
    unsigned short tcpPort() const;

    // Starts the thread. False with one line in `error`.
    bool start(std::string* error);
    // Takes no more connections, lets answers that are being written go out until `deadline`, closes
    // everything, ends the thread and removes the socket file. Idempotent.
    void stop(std::chrono::steady_clock::time_point deadline);

    std::size_t connections() const;

  private:
    class Impl;
    std::shared_ptr<Impl> impl_;  // shared with answers that come late
};

}  // namespace almanac::host
