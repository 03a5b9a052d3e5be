// Brings requests to the agent's tables and their rows back. Everything that calls the agent runs on a request
// thread; every operation here may be called from any thread and returns at once.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/framework/RequestPool.h"
#include "host/framework/RequestState.h"
#include "host/framework/TableCatalog.h"

namespace almanac::host {

// What a client asks once.
struct SampleQuery {
    std::shared_ptr<TableEntry> table;
    std::shared_ptr<const Filter> filter;  // compiled for the table's layout; null for all rows
    std::vector<std::string> subnodes;
    std::string situation;
    std::size_t limit = SIZE_MAX;
};

enum class SampleStatus {
    Ok,
    NotReady,   // the loader has not returned, or the table's columns are not known
    Busy,       // a bound is reached; try again later
    Stopping,   // the agent shuts down
    Failed,     // the agent threw or made no request
    Abandoned,  // nobody waits any longer; never seen by a client that waits
};

struct SampleResult {
    SampleStatus status = SampleStatus::Failed;
    Batch rows;
    bool truncated = false;  // rows were refused: the limit, or the bound of a batch
    int returnCode = 0;      // of TakeSample
    std::chrono::nanoseconds duration{0};
};

// A client's hold on its request. Dropping it changes nothing; abandon() tells that the answer is not waited for:
// a request that still waits never starts, one that runs takes no more rows.
class SampleTicket {
  public:
    void abandon();

  private:
    friend class RequestBroker;
    std::mutex mutex_;
    bool abandoned_ = false;
    aghbx* request_ = nullptr;  // while it runs
};

// One delivery to the sink of an open request.
struct Delivery {
    enum class Kind { Sample, Event };
    Kind kind = Kind::Sample;
    Batch rows;
    std::chrono::nanoseconds duration{0};  // of a sample
};
// Called on a request thread (samples) or on the event's thread with the table locked (events); it must only queue,
// and may still be called once while close() returns. Deliveries of one request may overlap.
using RowSink = std::function<void(Delivery&&)>;

// A request that stays open: samples at its interval (exception, interval) or nothing but events (event).
class OpenRequest {
  public:
    virtual ~OpenRequest() = default;
    // Closes the request; nothing is delivered afterwards but what is on its way. Idempotent; dropping the last
    // reference closes as well.
    virtual void close() = 0;
};

class OpenScheduler;

class RequestBroker {
  public:
    explicit RequestBroker(const RequestPool::Limits& limits = RequestPool::Limits());
    ~RequestBroker();  // waits for samples that run
    RequestBroker(const RequestBroker&) = delete;
    RequestBroker& operator=(const RequestBroker&) = delete;

    // Requests are served from here on.
    void setReady() { ready_.store(true); }
    bool ready() const { return ready_.load(); }

    // Takes one demand sample. On Ok `done` is called exactly once, on a request thread or (Stopping) on the thread
    // that stops; on anything else never. `done` must not throw.
    using Done = std::function<void(SampleResult&&)>;
    SampleStatus sample(const SampleQuery& query, Done done, std::shared_ptr<SampleTicket>* ticket = nullptr);

    // Opens a request. Its table, application and layout are filled in from the entry. Null if the broker is
    // not ready, stops or is busy, or 1,024 are open already.
    std::shared_ptr<OpenRequest> open(const std::shared_ptr<TableEntry>& table, RequestSpec spec, RowSink sink);
    std::size_t openRequests() const;

    // Runs work that calls the agent (a command) on a request thread, bounded by its key as samples are.
    RequestPool::Submitted run(const void* key, RequestPool::Job job) { return pool_->submit(key, std::move(job)); }
    bool runHousekeeping(RequestPool::Job job) { return pool_->submitHousekeeping(std::move(job)); }

    // Refuses what is new, drops what waits and closes what is open.
    void refuse();
    // Waits until nothing runs. False if the deadline came first.
    bool drain(std::chrono::steady_clock::time_point deadline) { return pool_->drain(deadline); }
    void stop();

    RequestPool& pool() { return *pool_; }

  private:
    void runSample(const SampleQuery& query, const Done& done, SampleTicket& ticket);

    std::shared_ptr<RequestPool> pool_;  // shared with what deletes a request late
    std::atomic<bool> ready_{false};
    std::shared_ptr<OpenScheduler> scheduler_;
};

}  // namespace almanac::host
