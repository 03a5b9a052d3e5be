#include "host/framework/RequestBroker.h"

#include <optional>

#include "host/base/HostTrace.h"
#include "host/framework/AgentCall.h"
#include "host/framework/OpenRequests.h"

namespace almanac::host {

void SampleTicket::abandon() {
    const std::lock_guard guard(mutex_);
    abandoned_ = true;
    if (request_) request_->state()->stopInserting.store(true);
}

void disposeOf(aghbx* request) {
    HOST_TRACE_FUNCTION();
    if (!callAgent([request] { delete request; })) host_trace_error("a request's end threw");
}

std::function<void(aghbx*)> lateDisposal(const std::shared_ptr<RequestPool>& pool) {
    return [pool](aghbx* request) {
        pool->submitHousekeeping([request](bool run) {
            if (run) disposeOf(request);  // else the agent has ended and the request with it
        });
    };
}

RequestBroker::RequestBroker(const RequestPool::Limits& limits)
    : pool_(std::make_shared<RequestPool>(limits)), scheduler_(std::make_shared<OpenScheduler>()) {}

RequestBroker::~RequestBroker() {
    refuse();
    drain(std::chrono::steady_clock::now() + std::chrono::hours(1));
    stop();
}

SampleStatus RequestBroker::sample(const SampleQuery& query, Done done,
                                   std::shared_ptr<SampleTicket>* ticket) {
    query.table->countRequest();
    if (!ready() || !query.table->layout()) return SampleStatus::NotReady;
    auto hold = std::make_shared<SampleTicket>();
    if (ticket) *ticket = hold;
    const auto submitted =
        pool_->submit(query.table.get(), [this, query, done = std::move(done), hold](bool run) {
            if (run) return runSample(query, done, *hold);
            SampleResult stopped;
            stopped.status = SampleStatus::Stopping;
            done(std::move(stopped));
        });
    if (submitted == RequestPool::Submitted::Accepted) return SampleStatus::Ok;
    query.table->countRefused();
    return submitted == RequestPool::Submitted::Busy ? SampleStatus::Busy : SampleStatus::Stopping;
}

void RequestBroker::runSample(const SampleQuery& query, const Done& done, SampleTicket& ticket) {
    HOST_TRACE_FUNCTION();
    SampleResult result;
    {
        const std::lock_guard guard(ticket.mutex_);
        if (ticket.abandoned_) result.status = SampleStatus::Abandoned;
    }
    if (result.status == SampleStatus::Abandoned) return done(std::move(result));

    auto spec = std::make_shared<RequestSpec>();
    spec->type = HBX_DEMAND;
    spec->application = query.table->application();
    spec->table = query.table->name();
    spec->layout = query.table->layout();
    spec->filter = query.filter;
    spec->subnodes = query.subnodes;
    spec->situation = query.situation;
    spec->limit = query.limit;

    query.table->countStart();
    const auto start = std::chrono::steady_clock::now();
    // Counts as inside the agent from its making to its end, also between the calls: the request may refer to what the
    // agent deletes when nothing is inside.
    std::optional<AgentCall> inside(std::in_place);
    aghbx* request = nullptr;
    bool good = callAgent([&] {
        RequestDetail detail(spec);
        ContextInfo context;
        context.onLastDrop = lateDisposal(pool_);
        request = query.table->manager()->CreateAghbx(&detail, &context);
    });
    if (request) {
        aghbx::State& state = *request->state();
        {
            const std::lock_guard guard(ticket.mutex_);
            ticket.request_ = request;
            if (ticket.abandoned_) state.stopInserting.store(true);
        }
        state.samplingThread.store(std::this_thread::get_id());
        good = callAgent([&] { result.returnCode = request->TakeSample(); }) && good;
        state.samplingThread.store({});
        {
            const std::lock_guard guard(ticket.mutex_);
            ticket.request_ = nullptr;
        }
        const std::lock_guard guard(state.mutex);
        result.rows = std::move(state.sample);
        result.truncated = state.full;
    }
    if (!request || !good) host_trace_error("table %s: the agent failed the request", spec->table.c_str());
    result.status = request && good ? SampleStatus::Ok : SampleStatus::Failed;
    result.duration = std::chrono::steady_clock::now() - start;
    query.table->countEnd(result.status == SampleStatus::Ok, result.rows.count(), result.duration);
    if (request && request->state()->retire()) disposeOf(request);
    inside.reset();
    done(std::move(result));
}

std::shared_ptr<OpenRequest> RequestBroker::open(const std::shared_ptr<TableEntry>& table, RequestSpec spec,
                                                 RowSink sink) {
    if (!ready() || !table->layout()) return nullptr;
    spec.application = table->application();
    spec.table = table->name();
    spec.layout = table->layout();
    auto open = std::make_shared<OpenRequestCore>(pool_, scheduler_, table, std::move(spec), std::move(sink));
    if (!scheduler_->enter(open)) return nullptr;
    const auto submitted = pool_->submit(table.get(), [open](bool run) {
        if (run) open->create();
    });
    if (submitted != RequestPool::Submitted::Accepted) {
        scheduler_->leave(open.get());
        return nullptr;
    }
    return std::make_shared<OpenHandle>(std::move(open));
}

std::size_t RequestBroker::openRequests() const { return scheduler_->size(); }

void RequestBroker::refuse() {
    pool_->refuse();
    for (const auto& open : scheduler_->shutDown()) open->close();
}

void RequestBroker::stop() { pool_->stop(); }

}  // namespace almanac::host
