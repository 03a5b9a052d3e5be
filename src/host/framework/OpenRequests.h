// Requests that stay open, and the one thread that starts their samples. Internal to the framework.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "host/framework/RequestBroker.h"

namespace almanac::host {

// Deletes a request, inside the agent.
void disposeOf(aghbx* request);
// What deletes a request whose last foreign reference goes after its end.
std::function<void(aghbx*)> lateDisposal(const std::shared_ptr<RequestPool>& pool);

class OpenScheduler;

class OpenRequestCore : public std::enable_shared_from_this<OpenRequestCore> {
  public:
    OpenRequestCore(std::shared_ptr<RequestPool> pool, std::shared_ptr<OpenScheduler> scheduler,
                    std::shared_ptr<TableEntry> table, RequestSpec spec, RowSink sink);

    // On a request thread: makes the request, puts it on the table's list, takes the first sample of a timed
    // one.
    void create();
    // Asks for a sample on a request thread; passes by while one runs or the pool is busy.
    void start();
    void close();
    bool timed() const { return spec_->type != HBX_EVENT && spec_->intervalMilliseconds > 0; }
    std::chrono::milliseconds interval() const {
        return std::chrono::milliseconds(spec_->intervalMilliseconds);
    }

  private:
    bool enterBusy();  // false if closed or busy
    void leaveBusy();  // ends the request if it was closed meanwhile
    void takeSample();
    void deliver(Delivery::Kind kind, Batch&& rows, std::chrono::nanoseconds duration);
    void end(aghbx* request);

    const std::shared_ptr<RequestPool> pool_;
    const std::shared_ptr<OpenScheduler> scheduler_;
    const std::shared_ptr<TableEntry> table_;
    const std::shared_ptr<const RequestSpec> spec_;

    std::mutex mutex_;  // guards what follows; not held while the agent or the sink is called
    std::shared_ptr<const RowSink> sink_;
    aghbx* request_ = nullptr;
    bool busy_ = false;
    bool closed_ = false;
};

// What the opener holds.
class OpenHandle : public OpenRequest {
  public:
    explicit OpenHandle(std::shared_ptr<OpenRequestCore> core) : core_(std::move(core)) {}
    ~OpenHandle() override { core_->close(); }
    void close() override { core_->close(); }

  private:
    std::shared_ptr<OpenRequestCore> core_;
};

// Knows what is open. Its thread exists only while a timed request is open and sleeps until the next one is
// due.
class OpenScheduler : public std::enable_shared_from_this<OpenScheduler> {
  public:
    static constexpr std::size_t kMaxOpen = 1024;

    bool enter(const std::shared_ptr<OpenRequestCore>& open);
    void leave(const OpenRequestCore* open);
    // From now on the request is due at its interval.
    void schedule(const OpenRequestCore* open);
    std::size_t size() const;
    // Empties the list and takes nothing any more; gives back what was open.
    std::vector<std::shared_ptr<OpenRequestCore>> shutDown();

  private:
    using Clock = std::chrono::steady_clock;
    struct Item {
        std::shared_ptr<OpenRequestCore> open;
        Clock::time_point due;
        bool scheduled = false;
    };
    void loop();

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Item> items_;
    bool threadRuns_ = false;
    bool closed_ = false;
};

}  // namespace almanac::host
