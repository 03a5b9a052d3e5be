// The whole way over the unix socket: a small table's requests a second, with and without pipelining, and the
// time a large cached table takes to a client. Server, request threads and client share the machine.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "host/framework/Framework.h"
#include "host/server/Api.h"
#include "host/server/HttpServer.h"

namespace {

using namespace almanac::host;

constexpr int kColumns = 20, kText = 32, kRowBytes = 32 + 6 * kText + 13 * 8;

struct Place {
    int offset, length, type;
};
Place placeOf(int column) {
    if (column < 7) return {column * kText, kText, HBX_UTF8};
    return {7 * kText + (column - 7) * 8, 8, HBX_INT64};
}
const std::string& nameOf(int column) {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int i = 0; i < kColumns; ++i) all.push_back("Column_" + std::to_string(i));
        return all;
    }();
    return names[static_cast<std::size_t>(column)];
}

// A table whose rows are at hand, like an agent's cache.
class CachedTable : public TableManager {
  public:
    CachedTable(const char* name, int rows) : TableManager("BENCH", name) {
        for (int r = 0; r < rows; ++r) {
            std::string row(kRowBytes, ' ');
            for (int c = 0; c < kColumns; ++c) {
                const Place place = placeOf(c);
                const std::int64_t number = std::int64_t{r} * 1000003 + c;
                const std::string text = "/usr/lib/unit-" + std::to_string(number % 100000);
                if (place.type == HBX_UTF8)
                    row.replace(static_cast<std::size_t>(place.offset), text.size(), text);
                else
                    std::memcpy(row.data() + place.offset, &number, sizeof number);
            }
            rows_.push_back(row);
        }
    }
    aghbx* CreateAghbx(RequestDetail* detail, ContextInfo* context) override;
    std::vector<std::string> rows_;
};

class CachedRequest : public aghbx {
  public:
    CachedRequest(RequestDetail* detail, ContextInfo* context, CachedTable* table)
        : aghbx(detail, context, table), table_(table) {
        SetRowSize(kRowBytes);
    }
    int TakeSample() override {
        for (std::string& row : table_->rows_) InsertRow(row.data());
        return 0;
    }
    int NumColumns() override { return kColumns; }
    int GetColumnInfo(ColumnInfo* info, int column) override {
        const Place place = placeOf(column);
        *info = ColumnInfo{nameOf(column).c_str(), nullptr, place.offset, place.length, place.type};
        return 0;
    }
    int ColumnIsException(char*, char*, _IntfOper, char*) override { return 0; }

  private:
    CachedTable* table_;
};

aghbx* CachedTable::CreateAghbx(RequestDetail* detail, ContextInfo* context) {
    return new CachedRequest(detail, context, this);
}

// One server for all benchmarks, for the life of the process.
struct Service {
    CachedTable small{"SMALL", 5}, big{"BIG", 10000};
    Framework framework;
    Api api{framework, "/nonexistent"};
    std::string path = "/tmp/almanac-bench-" + std::to_string(getpid()) + ".sock";
    HttpServer server{[this](const ApiRequest& request, Respond respond) {
        return api.handle(request, std::move(respond));
    }};

    Service() {
        framework.catalog.add(&small);
        framework.catalog.add(&big);
        framework.loaderReturned();
        std::string error;
        if (!server.listenUnix(path, &error) || !server.start(&error)) std::abort();
    }
    ~Service() { server.stop(std::chrono::steady_clock::now()); }
};

Service& service() {
    static Service instance;
    return instance;
}

class Client {
  public:
    Client() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, service().path.c_str(), service().path.size() + 1);
        if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
    }
    ~Client() { close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const std::string& bytes) {
        if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            std::abort();
    }
    // Reads one answer and gives its body's size.
    std::size_t answer() {
        std::size_t end;
        while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) more();
        if (buffer_.compare(9, 3, "200") != 0) std::abort();
        const std::size_t length =
            std::strtoul(buffer_.c_str() + buffer_.find("Content-Length: ") + 16, nullptr, 10);
        while (buffer_.size() < end + 4 + length) more();
        buffer_.erase(0, end + 4 + length);
        return length;
    }

  private:
    void more() {
        const std::size_t old = buffer_.size();
        buffer_.resize(old + 262144);
        const ssize_t length = recv(fd_, buffer_.data() + old, 262144, 0);
        if (length <= 0) std::abort();
        buffer_.resize(old + static_cast<std::size_t>(length));
    }

    int fd_;
    std::string buffer_;
};

const std::string kSmall = "GET /api/v1/tables/SMALL/rows HTTP/1.1\r\nHost: localhost\r\n\r\n";

// range(0) requests are on their way at any moment on one connection.
void smallTable(benchmark::State& state) {
    Client client;
    const auto depth = state.range(0);
    for (auto _ : state) {
        std::string requests;
        for (std::int64_t i = 0; i < depth; ++i) requests += kSmall;
        client.send(requests);
        for (std::int64_t i = 0; i < depth; ++i) client.answer();
    }
    state.SetItemsProcessed(state.iterations() * depth);
}
BENCHMARK(smallTable)->Arg(1)->Arg(16)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Four connections with a thread each, one request at a time.
void smallTableFourClients(benchmark::State& state) {
    Client client;
    for (auto _ : state) {
        client.send(kSmall);
        client.answer();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(smallTableFourClients)->Threads(4)->UseRealTime()->Unit(benchmark::kMicrosecond);

// 10,000 rows of 20 columns as JSON.
void bigTable(benchmark::State& state) {
    Client client;
    std::size_t bytes = 0;
    for (auto _ : state) {
        client.send("GET /api/v1/tables/BIG/rows HTTP/1.1\r\nHost: localhost\r\n\r\n");
        bytes += client.answer();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(bigTable)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
