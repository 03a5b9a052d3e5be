#include "host/server/HttpServer.h"

#if defined(__SANITIZE_THREAD__)
#define BOOST_ASIO_DISABLE_FENCED_BLOCK \
    1  // the sanitizer does not know fences; asio's locks order its handlers
#endif

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <set>
#include <thread>
#include <vector>

#include "host/base/HostTrace.h"
#include "host/server/Listener.h"

namespace almanac::host {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<asio::generic::stream_protocol, Executor>;
using Timer = asio::basic_waitable_timer<std::chrono::steady_clock,
                                         asio::wait_traits<std::chrono::steady_clock>, Executor>;
using Descriptor = asio::posix::basic_stream_descriptor<Executor>;

// Bodies that wait for slow readers, together; a single one may be larger.
constexpr std::size_t kMaxOutgoing = std::size_t{256} << 20;

// In which those that wait read at the end that there is no answer.
constexpr std::chrono::milliseconds kLastWords{500};

constexpr char kFull[] =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 1\r\n"
    "Content-Type: application/problem+json\r\nContent-Length: 106\r\n\r\n"
    "{\"type\":\"about:blank\",\"title\":\"Service Unavailable\",\"status\":503,"
    "\"detail\":\"too many connections are open\"}";

struct Listening {
    Descriptor descriptor;
    Timer retry;  // after a fault of accept, such as no descriptor left
    bool local;
};

}  // namespace

class HttpServer::Impl : public std::enable_shared_from_this<HttpServer::Impl> {
  public:
    class Session;

    Impl(Handler handler_, const HttpLimits& limits_)
        : handler(std::move(handler_)), limits(limits_), io(1), closeTimer(io.get_executor()) {}

    void accept(Listening& listening);
    void acceptAll(Listening& listening);
    void beginClosing(std::chrono::steady_clock::time_point deadline);
    std::vector<std::shared_ptr<Session>> openSessions() const;
    void run();

    const Handler handler;
    const HttpLimits limits;
    asio::io_context io;
    Timer closeTimer;
    std::vector<std::unique_ptr<Listening>> listening;
    std::set<Session*> sessions;  // the server's thread only
    std::size_t outgoing = 0;     // bytes of the bodies being written; the server's thread only
    std::atomic<std::size_t> count{0};
    bool closing = false;  // the server's thread only
    std::string unixPath;
    unsigned short port = 0;
    std::thread thread;
};

// One connection: reads a request, hands it to the handler, writes the answer, again and again. All on the
// server's thread; only answers arrive from elsewhere, and are posted.
class HttpServer::Impl::Session : public std::enable_shared_from_this<Session> {
  public:
    Session(std::shared_ptr<Impl> server, Socket socket, bool local)
        : server_(std::move(server)),
          socket_(std::move(socket)),
          timer_(server_->io.get_executor()),
          local_(local) {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (local_ && getsockopt(socket_.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0)
            peer_ = static_cast<long>(peer.uid);
        server_->sessions.insert(this);
        server_->count.store(server_->sessions.size());
    }

    ~Session() {
        server_->outgoing -= held_;
        server_->sessions.erase(this);
        server_->count.store(server_->sessions.size());
        if (server_->closing && server_->sessions.empty()) server_->closeTimer.cancel();
    }

    void waitForRequest() {
        if (server_->closing) return close();
        if (buffer_.size() > 0) return readRequest();
        setTimer(server_->limits.idle);
        socket_.async_wait(Socket::wait_read, [self = shared_from_this()](error_code error) {
            if (!error)
                self->readRequest();
            else
                self->close();
        });
    }

    void close() {
        timer_.cancel();
        error_code ignored;
        socket_.close(ignored);
        const auto self = std::move(waiting_);  // an answer that comes later finds nobody
    }

    bool idle() const { return !pending_ && !writing_; }

    // Tells who still waits for an answer that none comes.
    void giveUp() {
        if (!pending_) return close();
        answered(number_, problem(503, "the agent shuts down before this has ended; what became of it is not known here"));
    }

  private:
    using RequestParser = http::request_parser<http::string_body>;

    void setTimer(std::chrono::milliseconds after) {
        timer_.expires_after(after);
        timer_.async_wait([self = shared_from_this()](error_code error) {
            if (!error && self->timer_.expiry() <= std::chrono::steady_clock::now()) self->close();
        });
    }

    void readRequest() {
        setTimer(server_->limits.request);
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(server_->limits.header));
        parser_->body_limit(server_->limits.body);
        http::async_read(
            socket_, buffer_, *parser_,
            [self = shared_from_this()](error_code error, std::size_t) { self->requestRead(error); });
    }

    void requestRead(error_code error) {
        timer_.cancel();
        if (error == http::error::header_limit || error == http::error::buffer_overflow)
            return reject(problem(431, "the request's header has more than 16 KiB"));
        if (error == http::error::body_limit)
            return reject(problem(413, "the request's body has more than 64 KiB"));
        if (error == http::error::bad_version)
            return reject(problem(505, "HTTP/1.0 and HTTP/1.1 are spoken here"));
        // What the parser refuses is answered; what the connection itself came to is not.
        if (error == http::error::end_of_stream || error == http::error::partial_message) return close();
        if (error && error.category() == http::make_error_code(http::error::bad_method).category())
            return reject(problem(400, "the request is no HTTP: " + error.message()));
        if (error) return close();
        dispatch();
    }

    void reject(ApiResponse&& response) {
        keepAlive_ = false;
        head_ = false;
        write(std::move(response));
    }

    void dispatch() {
        const auto& message = parser_->get();
        keepAlive_ = message.keep_alive();
        head_ = message.method() == http::verb::head;
        const auto field = [&message](http::field name) { return std::string(message[name]); };
        if (message.count(http::field::host) != 1 && message.version() >= 11)
            return reject(problem(400, "the request needs exactly one Host field"));
        ApiRequest request;
        request.method = std::string(message.method_string());
        request.target = std::string(message.target());
        for (const auto& one : message) {  // several Accept fields count as one list
            if (one.name() != http::field::accept) continue;
            if (!request.accept.empty()) request.accept += ',';
            request.accept += std::string(one.value());
        }
        request.body = message.body();
        request.authorization = field(http::field::authorization);
        request.host = field(http::field::host);
        request.origin = field(http::field::origin);
        request.fetchSite = std::string(message["Sec-Fetch-Site"]);
        request.local = local_;
        request.peer = peer_;
        parser_.reset();
        hand(request);
    }

    void hand(const ApiRequest& request) {
        pending_ = true;
        waiting_ = shared_from_this();
        const std::uint64_t number = ++number_;
        Respond respond = [weak = weak_from_this(), server = server_, number](ApiResponse&& response) {
            asio::dispatch(server->io, [weak, number, response = std::move(response)]() mutable {
                if (const auto self = weak.lock()) self->answered(number, std::move(response));
            });
        };
        std::optional<ApiDeadline> deadline;
        try {
            deadline = server_->handler(request, std::move(respond));
        } catch (...) {
            answered(number, problem(500, "the request could not be handled"));
        }
        if (!deadline || !pending_) return;
        timer_.expires_after(deadline->after);
        timer_.async_wait(
            [self = shared_from_this(), number, expired = std::move(deadline->expired)](error_code error) {
                if (!error && self->pending_ && self->number_ == number) self->answered(number, expired());
            });
    }

    void answered(std::uint64_t number, ApiResponse&& response) {
        if (!pending_ || number != number_) return;  // too late: the deadline has answered
        pending_ = false;
        timer_.cancel();
        const auto self = std::move(waiting_);
        write(std::move(response));
    }

    void write(ApiResponse&& response) {
        if (!socket_.is_open()) return;
        if (server_->closing) keepAlive_ = false;
        if (server_->outgoing > 0 && server_->outgoing + response.body.size() > kMaxOutgoing)
            response = problem(503, "too many large answers are on their way; try again");
        const bool bodyless = response.status == 204;
        header_ =
            "HTTP/1.1 " + std::to_string(response.status) + ' ' + statusPhrase(response.status) + "\r\n";
        if (!response.contentType.empty()) header_ += "Content-Type: " + response.contentType + "\r\n";
        if (!bodyless) header_ += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
        for (const auto& [name, value] : response.headers) header_ += name + ": " + value + "\r\n";
        header_ += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
        if (!keepAlive_) header_ += "Connection: close\r\n";
        header_ += "\r\n";
        body_ = head_ || bodyless ? std::string() : std::move(response.body);
        held_ = body_.size();
        server_->outgoing += held_;
        writing_ = true;
        sent_ = 0;
        writeMore();
    }

    // In pieces, so that a slow reader of a large answer is only given up when it takes nothing at all.
    void writeMore() {
        constexpr std::size_t kPiece = std::size_t{1} << 20;
        const bool first = sent_ == 0;
        const std::size_t size = std::min(kPiece, body_.size() - sent_);
        const std::array<asio::const_buffer, 2> buffers{asio::buffer(first ? header_ : std::string_view()),
                                                        asio::buffer(body_.data() + sent_, size)};
        sent_ += size;
        setTimer(server_->limits.idle);
        asio::async_write(socket_, buffers, [self = shared_from_this()](error_code error, std::size_t) {
            self->written(error);
        });
    }

    void written(error_code error) {
        if (!error && sent_ < body_.size()) return writeMore();
        writing_ = false;
        server_->outgoing -= held_;
        held_ = 0;
        if (body_.capacity() > 65536) std::string().swap(body_);
        if (buffer_.size() == 0 && buffer_.capacity() > 8192) buffer_.shrink_to_fit();
        if (error) return close();
        if (keepAlive_) return waitForRequest();
        // Lets the peer read what has been sent before a close that would reset the connection.
        error_code ignored;
        socket_.shutdown(Socket::shutdown_send, ignored);
        drain();
    }

    void drain() {
        setTimer(std::chrono::milliseconds(1000));
        socket_.async_wait(Socket::wait_read, [self = shared_from_this()](error_code error) {
            char scratch[4096];
            const ssize_t length =
                error ? -1 : ::recv(self->socket_.native_handle(), scratch, sizeof scratch, MSG_DONTWAIT);
            if (length <= 0 || ++self->drained_ > 64) return self->close();
            self->drain();
        });
    }

    const std::shared_ptr<Impl> server_;
    Socket socket_;
    Timer timer_;
    const bool local_;
    long peer_ = -1;
    boost::beast::flat_buffer buffer_{96 * 1024};
    std::optional<RequestParser> parser_;
    std::shared_ptr<Session> waiting_;  // holds itself while the answer is being made elsewhere
    std::uint64_t number_ = 0;
    bool pending_ = false, writing_ = false, keepAlive_ = true, head_ = false;
    int drained_ = 0;
    std::string header_, body_;
    std::size_t sent_ = 0, held_ = 0;
};

void HttpServer::Impl::accept(Listening& listening) {
    listening.descriptor.async_wait(Descriptor::wait_read, [this, &listening](error_code error) {
        if (!error && !closing) acceptAll(listening);
    });
}

void HttpServer::Impl::acceptAll(Listening& listening) {
    HOST_TRACE_FUNCTION();
    for (int taken = 0; taken < 64; ++taken) {  // then the connections that are open get their turn
        const int fd =
            accept4(listening.descriptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            host_trace_error("a connection cannot be taken, errno %d", errno);
            listening.retry.expires_after(std::chrono::milliseconds(200));
            listening.retry.async_wait([this, &listening](error_code error) {
                if (!error && !closing) accept(listening);
            });
            return;
        }
        if (sessions.size() >= limits.connections) {
            // One try: a peer that does not read it is no loss.
            (void)!::send(fd, kFull, sizeof kFull - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
            ::close(fd);
            continue;
        }
        Socket socket(io.get_executor());
        error_code error;
        socket.assign(asio::generic::stream_protocol(listening.local ? AF_UNIX : AF_INET, 0), fd, error);
        if (error) {
            ::close(fd);
            continue;
        }
        const int on = 1;
        if (!listening.local) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::make_shared<Session>(shared_from_this(), std::move(socket), listening.local)->waitForRequest();
    }
    accept(listening);
}

void HttpServer::Impl::beginClosing(std::chrono::steady_clock::time_point deadline) {
    closing = true;
    error_code ignored;
    for (const auto& one : listening) {
        one->descriptor.close(ignored);
        one->retry.cancel();
    }
    for (const auto& session : openSessions()) {
        if (session->idle()) session->close();
    }
    if (sessions.empty()) return;
    closeTimer.expires_at(deadline);
    closeTimer.async_wait([this](error_code error) {
        if (error || sessions.empty()) return;
        for (const auto& session : openSessions()) session->giveUp();
        closeTimer.expires_after(kLastWords);
        closeTimer.async_wait([this](error_code) {
            for (const auto& session : openSessions()) session->close();
        });
    });
}

// Closing one changes the set.
std::vector<std::shared_ptr<HttpServer::Impl::Session>> HttpServer::Impl::openSessions() const {
    std::vector<std::shared_ptr<Session>> all;
    for (Session* session : sessions) all.push_back(session->shared_from_this());
    return all;
}

void HttpServer::Impl::run() {
    for (;;) {
        try {
            io.run();
            return;
        } catch (...) {
            // Memory ran out in a handler; the connection it belonged to is gone, the others go on.
            HOST_TRACE_FUNCTION();
            host_trace_error("a connection ended by an exception");
        }
    }
}

HttpServer::HttpServer(Handler handler, const HttpLimits& limits)
    : impl_(std::make_shared<Impl>(std::move(handler), limits)) {}

HttpServer::~HttpServer() { stop(std::chrono::steady_clock::now()); }

bool HttpServer::listenUnix(const std::string& path, std::string* error) {
    const int fd = openUnixListener(path, error);
    if (fd < 0) return false;
    impl_->unixPath = path;
    impl_->listening.push_back(std::make_unique<Listening>(
        Listening{Descriptor(impl_->io.get_executor(), fd), Timer(impl_->io.get_executor()), true}));
    return true;
}

bool HttpServer::listenTcp(unsigned short port, std::string* error) {
    const int fd = openTcpListener(&port, error);
    if (fd < 0) return false;
    impl_->port = port;
    impl_->listening.push_back(std::make_unique<Listening>(
        Listening{Descriptor(impl_->io.get_executor(), fd), Timer(impl_->io.get_executor()), false}));
    return true;
}

unsigned short HttpServer::tcpPort() const { return impl_->port; }
std::size_t HttpServer::connections() const { return impl_->count.load(); }

bool HttpServer::start(std::string* error) {
    for (const auto& one : impl_->listening) impl_->accept(*one);
    try {
        impl_->thread = std::thread([impl = impl_.get()] {
            pthread_setname_np(pthread_self(), "http");
            impl->run();
        });
    } catch (const std::system_error& failure) {
        *error = std::string("no thread for the server: ") + failure.what();
        return false;
    }
    return true;
}

void HttpServer::stop(std::chrono::steady_clock::time_point deadline) {
    if (impl_->thread.joinable()) {
        asio::post(impl_->io, [impl = impl_.get(), deadline] { impl->beginClosing(deadline); });
        impl_->thread.join();
    }
    impl_->listening.clear();
    if (!impl_->unixPath.empty()) unlink(impl_->unixPath.c_str());
    impl_->unixPath.clear();
}

}  // namespace almanac::host
