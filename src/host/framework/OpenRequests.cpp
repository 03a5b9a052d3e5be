#include "host/framework/OpenRequests.h"

#include <algorithm>
#include <system_error>
#include <thread>

#include "host/base/HostTrace.h"
#include "host/framework/AgentCall.h"

namespace almanac::host {

OpenRequestCore::OpenRequestCore(std::shared_ptr<RequestPool> pool, std::shared_ptr<OpenScheduler> scheduler,
                                 std::shared_ptr<TableEntry> table, RequestSpec spec, RowSink sink)
    : pool_(std::move(pool)),
      scheduler_(std::move(scheduler)),
      table_(std::move(table)),
      spec_(std::make_shared<const RequestSpec>(std::move(spec))),
      sink_(std::make_shared<const RowSink>(std::move(sink))) {}

bool OpenRequestCore::enterBusy() {
    const std::lock_guard guard(mutex_);
    if (closed_ || busy_) return false;
    busy_ = true;
    return true;
}

void OpenRequestCore::leaveBusy() {
    aghbx* ended = nullptr;
    {
        const std::lock_guard guard(mutex_);
        busy_ = false;
        if (closed_) std::swap(ended, request_);
    }
    if (ended) end(ended);
}

void OpenRequestCore::create() {
    HOST_TRACE_FUNCTION();
    if (!enterBusy()) return;
    aghbx* request = nullptr;
    callAgent([&] {
        RequestDetail detail(spec_);
        ContextInfo context;
        context.onLastDrop = lateDisposal(pool_);
        context.onEvents = [weak = weak_from_this()](Batch&& rows) {
            if (const auto self = weak.lock()) self->deliver(Delivery::Kind::Event, std::move(rows), {});
        };
        request = table_->manager()->CreateAghbx(&detail, &context);
    });
    if (!request) {
        host_trace_error("table %s: the agent made no request", spec_->table.c_str());
        scheduler_->leave(this);
        return leaveBusy();
    }
    table_->manager()->attach(request);
    {
        const std::lock_guard guard(mutex_);
        request_ = request;
    }
    if (timed()) {
        takeSample();
        scheduler_->schedule(this);
    }
    leaveBusy();
}

void OpenRequestCore::start() {
    pool_->submit(table_.get(), [self = shared_from_this()](bool run) {
        if (!run || !self->enterBusy()) return;
        self->takeSample();
        self->leaveBusy();
    });
}

void OpenRequestCore::takeSample() {
    HOST_TRACE_FUNCTION();
    aghbx* request = nullptr;
    {
        const std::lock_guard guard(mutex_);
        request = request_;
    }
    if (!request) return;
    aghbx::State& state = *request->state();
    table_->countRequest();
    table_->countStart();
    const auto start = std::chrono::steady_clock::now();
    {
        const std::lock_guard guard(state.mutex);
        state.sample = Batch(spec_->layout);
        state.full = false;
    }
    state.samplingThread.store(std::this_thread::get_id());
    const bool good = callAgent([request] { request->TakeSample(); });
    state.samplingThread.store({});
    Batch rows;
    {
        const std::lock_guard guard(state.mutex);
        rows = std::move(state.sample);
        state.sample = Batch(spec_->layout);
    }
    const auto duration = std::chrono::steady_clock::now() - start;
    table_->countEnd(good, rows.count(), duration);
    if (good)
        deliver(Delivery::Kind::Sample, std::move(rows), duration);
    else
        host_trace_error("table %s: the agent failed a sample", spec_->table.c_str());
}

void OpenRequestCore::deliver(Delivery::Kind kind, Batch&& rows, std::chrono::nanoseconds duration) {
    std::shared_ptr<const RowSink> sink;
    {
        const std::lock_guard guard(mutex_);
        if (closed_) return;
        sink = sink_;
    }
    if (!*sink) return;
    Delivery delivery;
    delivery.kind = kind;
    delivery.rows = std::move(rows);
    delivery.duration = duration;
    try {
        (*sink)(std::move(delivery));
    } catch (...) {
        HOST_TRACE_FUNCTION();
        host_trace_error("table %s: rows could not be delivered", spec_->table.c_str());
    }
}

void OpenRequestCore::close() {
    bool endNow = false;
    std::shared_ptr<const RowSink> sink;
    {
        const std::lock_guard guard(mutex_);
        if (closed_) return;
        closed_ = true;
        sink = std::move(sink_);
        endNow = request_ && !busy_;
    }
    scheduler_->leave(this);
    if (!endNow) return;  // whoever is busy with it ends it
    pool_->submitHousekeeping([self = shared_from_this()](bool run) {
        if (!run) return;
        aghbx* request = nullptr;
        {
            const std::lock_guard guard(self->mutex_);
            std::swap(request, self->request_);
        }
        if (request) self->end(request);
    });
}

void OpenRequestCore::end(aghbx* request) {
    table_->manager()->detach(request);
    if (request->state()->retire()) disposeOf(request);
}

bool OpenScheduler::enter(const std::shared_ptr<OpenRequestCore>& open) {
    const std::lock_guard guard(mutex_);
    if (closed_ || items_.size() >= kMaxOpen) return false;
    items_.push_back({open, {}, false});
    return true;
}

void OpenScheduler::leave(const OpenRequestCore* open) {
    Item gone;  // dropped behind the lock
    const std::lock_guard guard(mutex_);
    const auto it =
        std::find_if(items_.begin(), items_.end(), [open](const Item& i) { return i.open.get() == open; });
    if (it == items_.end()) return;
    gone = std::move(*it);
    items_.erase(it);
    changed_.notify_all();
}

void OpenScheduler::schedule(const OpenRequestCore* open) {
    const std::lock_guard guard(mutex_);
    for (Item& item : items_) {
        if (item.open.get() != open) continue;
        item.due = Clock::now() + item.open->interval();
        item.scheduled = true;
    }
    if (threadRuns_) return changed_.notify_all();
    try {
        std::thread([self = shared_from_this()] { self->loop(); }).detach();
        threadRuns_ = true;
    } catch (const std::system_error&) {
        HOST_TRACE_FUNCTION();
        host_trace_error("no thread for timed requests");
    }
}

std::size_t OpenScheduler::size() const {
    const std::lock_guard guard(mutex_);
    return items_.size();
}

std::vector<std::shared_ptr<OpenRequestCore>> OpenScheduler::shutDown() {
    std::vector<std::shared_ptr<OpenRequestCore>> open;
    const std::lock_guard guard(mutex_);
    closed_ = true;
    for (Item& item : items_) open.push_back(std::move(item.open));
    items_.clear();
    changed_.notify_all();
    return open;
}

void OpenScheduler::loop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        Item* next = nullptr;
        for (Item& item : items_) {
            if (item.scheduled && (!next || item.due < next->due)) next = &item;
        }
        if (!next) break;
        const auto now = Clock::now();
        if (next->due > now) {
            const auto due = next->due;  // the list may change while this waits
            changed_.wait_until(lock, due);
            continue;
        }
        // What is late is not made up for.
        next->due = std::max(next->due + next->open->interval(), now);
        const std::shared_ptr<OpenRequestCore> open = next->open;
        lock.unlock();
        open->start();
        lock.lock();
    }
    threadRuns_ = false;
}

}  // namespace almanac::host
