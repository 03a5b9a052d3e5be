// zhbmain: builds the host, wires it, waits, and takes it down again in bounded time.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "host/assembly/InstanceLock.h"
#include "host/base/HostConfiguration.h"
#include "host/base/HostTrace.h"
#include "host/base/Paths.h"
#include "host/framework/AgentCall.h"
#include "host/framework/Framework.h"
#include "host/server/Api.h"
#include "host/server/HttpServer.h"
#include "platform/zhb.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kInstallationFault = 78;           // EX_CONFIG of sysexits(3)
constexpr std::chrono::seconds kDrain{5};        // for requests inside the agent
constexpr std::chrono::seconds kServerClose{1};  // for answers on their way out
constexpr std::chrono::milliseconds kAll{9500};  // for everything after the shutdown was asked for

void complain(const std::string& line) {
    const std::string text = "almanacd: " + line + "\n";
    (void)!write(STDERR_FILENO, text.data(), text.size());
}

// Ends the process if the agent's own end hangs.
class Watchdog {
  public:
    explicit Watchdog(Clock::time_point deadline) {
        try {
            thread_ = std::thread([this, deadline] { watch(deadline); });
        } catch (const std::system_error&) {
            complain("no thread to watch the shutdown");
        }
    }
    ~Watchdog() {
        {
            const std::lock_guard guard(mutex_);
            done_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable()) thread_.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

  private:
    void watch(Clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        if (changed_.wait_until(lock, deadline, [this] { return done_; })) return;
        complain("the agent did not end in time");
        _exit(0);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false;
    std::thread thread_;
};

// The loader on its own thread, which is not joined: it may hang.
class LoaderThread {
  public:
    bool start(Framework& framework, std::string* error) {
        state_ = std::make_shared<State>();
        try {
            std::thread([state = state_, &framework] { run(*state, framework); }).detach();
        } catch (const std::system_error& failure) {
            *error = std::string("no thread for the agent's loader: ") + failure.what();
            return false;
        }
        return true;
    }

    bool waitUntil(Clock::time_point deadline) {
        std::unique_lock lock(state_->mutex);
        return state_->changed.wait_until(lock, deadline, [this] { return state_->done; });
    }
    bool failed() const { return state_->failed.load(); }

  private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool done = false;
        std::atomic<bool> failed{false};
    };

    static void run(State& state, Framework& framework) {
        HOST_TRACE_FUNCTION();
        const HBX_AgentLoader loader = framework.agent.loader();
        int code = 0;
        if (loader && (!callAgent([&] { code = loader(); }) || code != 0)) {
            host_trace_error("the agent's loader failed with %d", code);
            complain("the agent's loader failed with " + std::to_string(code));
            state.failed.store(true);
            framework.lifecycle.shutDown(1, std::chrono::seconds(0));
        } else {
            framework.loaderReturned();
            host_trace_state("%zu tables are ready", framework.catalog.list().size());
        }
        const std::lock_guard guard(state.mutex);
        state.done = true;
        state.changed.notify_all();
    }

    std::shared_ptr<State> state_;
};

// Writes the port beside the other files, as a whole or not at all.
bool writePortFile(const std::string& path, unsigned short port, std::string* error) {
    const std::string text = std::to_string(port) + "\n", temporary = path + ".new";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    const bool written = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0) close(fd);
    if (written && rename(temporary.c_str(), path.c_str()) == 0) return true;
    *error = path + ": " + std::strerror(errno);
    return false;
}

bool readPort(const char* text, unsigned short* port) {
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, *port);
    return error == std::errc() && stop == end && stop != text;
}

class Host {
  public:
    explicit Host(Framework& framework)
        : framework_(framework),
          directory_(dataDirectory()),
          api_(std::make_unique<Api>(framework, directory_)),
          server_([api = api_.get()](const ApiRequest& request, Respond respond) {
              return api->handle(request, std::move(respond));
          }) {}

    bool start(std::string* error) {
        if (!prepareDataDirectory(error) || !loadHostConfiguration(error) || !lock_.take(directory_, error))
            return false;
        const char* socket = ZSV1_GetEnv("ALMANAC_SOCKET");
        if (!server_.listenUnix(socket && *socket ? fromStart(socket) : directory_ + "/almanac.sock", error))
            return false;
        const char* port = ZSV1_GetEnv("ALMANAC_HTTP_PORT");
        if (port && *port && !listenTcp(port, error)) return false;
        return server_.start(error) && loader_.start(framework_, error);
    }

    // Takes everything down but the agent's own objects. Requests that hang stay where they are.
    void end() {
        HOST_TRACE_FUNCTION();
        const Clock::time_point deadline = Clock::now() + kDrain;
        framework_.events.unfollowAll();
        framework_.broker.refuse();
        const bool loaded = loader_.waitUntil(deadline);
        const bool drained = framework_.broker.drain(deadline);
        if (!loaded || !drained)
            host_trace_error("%d requests are still inside the agent", AgentCall::running());
        framework_.broker.stop();
        stopServer(kServerClose);
    }

    void stopServer(std::chrono::milliseconds wait) {
        server_.stop(Clock::now() + wait);
        if (!portFile_.empty()) unlink(portFile_.c_str());
    }

    void releaseLock() { lock_.release(); }
    bool loaderFailed() const { return loader_.failed(); }

  private:
    bool listenTcp(const char* text, std::string* error) {
        unsigned short port = 0;
        if (!readPort(text, &port)) {
            *error = "ALMANAC_HTTP_PORT: '" + std::string(text) + "' is no port number";
            return false;
        }
        if (!prepareToken(directory_, error) || !server_.listenTcp(port, error)) return false;
        portFile_ = directory_ + "/port";
        return writePortFile(portFile_, server_.tcpPort(), error);
    }

    Framework& framework_;
    const std::string directory_;
    const std::unique_ptr<Api> api_;
    InstanceLock lock_;
    HttpServer server_;
    LoaderThread loader_;
    std::string portFile_;
};

std::string instanceName(int argc, char** argv) {
    const char* named = ZSV1_GetEnv("ALMANAC_INSTANCE");
    if (named && *named) return named;
    return instanceFromArguments(argc, argv, ZSV1_GetEnv("AGHBX_HOSTNAME"));
}

// The agent's own end, once, on this thread. Not counted as a request: the agent asks whether there are any.
void terminateAgent(Framework& framework, Clock::time_point deadline) {
    HOST_TRACE_FUNCTION();
    framework.lifecycle.end();
    if (!AgTerminate) return;
    const Watchdog watchdog(deadline);
    try {
        AgTerminate();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        host_trace_error("the agent's end threw");
    }
}

int runHost(int argc, char** argv) {
    Framework& framework = almanac::host::framework();
    // Fixed, or the first large answer would keep all later ones in the heap for good.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 2 << 20);
    mallopt(M_ARENA_MAX, 2);  // a dozen short-lived request threads are no reason for a dozen heaps
    framework.agent.setInstance(instanceName(argc, argv));
    if (framework.lifecycle.asked()) {
        terminateAgent(framework, Clock::now() + kAll);
        return 0;
    }
    Host host(framework);
    std::string error;
    if (!host.start(&error)) {
        complain(error);
        host.stopServer(std::chrono::milliseconds(0));
        terminateAgent(framework, Clock::now() + kAll);
        return kInstallationFault;
    }
    framework.lifecycle.waitAsked();
    host.end();
    terminateAgent(framework, framework.lifecycle.askedAt() + kAll);
    host.releaseLock();
    return host.loaderFailed() ? 1 : 0;
}

}  // namespace
}  // namespace almanac::host

int zhbmain(int argc, char** argv) {
    almanac::host::Lifecycle& lifecycle = almanac::host::framework().lifecycle;
    if (!lifecycle.enterMain()) return 1;
    const int code = almanac::host::runHost(argc, argv);
    lifecycle.leaveMain();
    return code;
}
