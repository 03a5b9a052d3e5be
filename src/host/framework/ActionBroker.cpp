#include "host/framework/ActionBroker.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "host/base/HostTrace.h"
#include "host/framework/ActionRun.h"
#include "host/framework/AgentCall.h"
#include "host/framework/Framework.h"
#include "host/framework/RequestState.h"

AghbxAutomationCapsule::AghbxAutomationCapsule(const char* command, const char* user, aghbx* request)
    : impl_(new Impl) {
    impl_->command = command ? command : "";
    impl_->user = user ? user : "";
    impl_->hasUser = user != nullptr;
    impl_->request = request;
}

AghbxAutomationCapsule::~AghbxAutomationCapsule() = default;

const char* AghbxAutomationCapsule::Command() const { return impl_->command.c_str(); }
const char* AghbxAutomationCapsule::User() const { return impl_->hasUser ? impl_->user.c_str() : nullptr; }
aghbx* AghbxAutomationCapsule::Request() const { return impl_->request; }

void AghbxAutomationCapsule::SetMessage(const char* text) {
    const std::lock_guard guard(impl_->mutex);
    if (!impl_->finished) impl_->message = text ? text : "";
}

void AghbxAutomationCapsule::SetResults(int returnCode) {
    const std::lock_guard guard(impl_->mutex);
    if (!impl_->finished) impl_->results = returnCode;
}

// Stable once the capsule is finished.
const char* AghbxAutomationCapsule::Message() const { return impl_->message.c_str(); }

int AghbxAutomationCapsule::Results() const {
    const std::lock_guard guard(impl_->mutex);
    return impl_->results;
}

bool AghbxAutomationCapsule::Finished() const {
    const std::lock_guard guard(impl_->mutex);
    return impl_->finished;
}

namespace almanac::host {
namespace {

// The request that carries a command: it has names and a subnode but no table behind it.
class CommandRequest : public aghbx {
  public:
    using aghbx::aghbx;
    int TakeSample() override { return 0; }
    int NumColumns() override { return 0; }
    int GetColumnInfo(ColumnInfo*, int) override { return HBX_BAD_COLUMN; }
    int ColumnIsException(char*, char*, _IntfOper, char*) override { return 0; }
};

// What a command puts into the table of actions, as an event request on it gets to see: the rows that this thread
// inserts are the command's, those of other threads another one's.
class ActionRows {
  public:
    explicit ActionRows(std::shared_ptr<TableEntry> table) : table_(std::move(table)) {
        if (!table_) return;
        auto spec = std::make_shared<RequestSpec>();
        spec->type = HBX_EVENT;
        spec->application = table_->application();
        spec->table = table_->name();
        spec->layout = table_->layout();
        spec->limit = ActionBroker::kMaxRowBytes / std::max<std::size_t>(spec->layout->rowSize, 1);
        callAgent([&] {
            RequestDetail detail(spec);
            ContextInfo context;
            request_ = table_->manager()->CreateAghbx(&detail, &context);
        });
        if (!request_) return;
        request_->state()->samplingThread.store(std::this_thread::get_id());
        table_->manager()->attach(request_);
    }
    // Nobody but this thread and those that hold the table's lock refer to the request.
    ~ActionRows() {
        if (!request_) return;
        table_->manager()->detach(request_);
        callAgent([&] { delete request_; });
    }
    ActionRows(const ActionRows&) = delete;
    ActionRows& operator=(const ActionRows&) = delete;

    void take(Batch* rows, bool* truncated) {
        if (!request_) return;
        aghbx::State& state = *request_->state();
        const std::lock_guard guard(state.mutex);
        *rows = std::move(state.sample);
        *truncated = state.full;
        state.sample = Batch(state.spec->layout);
    }

  private:
    const std::shared_ptr<TableEntry> table_;
    aghbx* request_ = nullptr;
};

// The table of actions, known by the fixed name of its first column; null if the agent has none.
std::shared_ptr<TableEntry> tableOfActions(const TableCatalog& catalog) {
    for (const auto& table : catalog.list()) {
        const auto layout = table->layout();
        if (layout && (layout->find("TSKNAME") || layout->find("TSKID"))) return table;
    }
    return nullptr;
}

// One command between its start and the later of "the callback has returned" and "the agent has finished it".
struct Run {
    std::unique_ptr<CommandRequest> request;
    std::unique_ptr<AghbxAutomationCapsule> capsule;
    ActionBroker::Done done;
    std::shared_ptr<std::atomic<std::size_t>> unfinished;
    std::string command;
    std::chrono::steady_clock::time_point started{};

    std::mutex mutex;  // guards what follows
    ActionRows* rows = nullptr;  // while the callback is inside the agent

    ~Run() { unfinished->fetch_sub(1); }
};

void report(Run& run, SampleStatus status, const std::string& refusal = "") {
    ActionResult result;
    result.status = status;
    result.command = run.command;
    result.refusal = refusal;
    if (status == SampleStatus::Ok) {
        result.returnCode = run.capsule->Results();
        result.message = run.capsule->Message();
        result.duration = std::chrono::steady_clock::now() - run.started;
        const std::lock_guard guard(run.mutex);
        if (run.rows) run.rows->take(&result.rows, &result.truncated);
    }
    run.done(std::move(result));
}

// The text of a declared command. Nothing, with the reason in `why`, if it cannot be made.
std::optional<std::string> compose(HBX_CommandComposer composer, const ActionQuery& query, std::string* why) {
    if (query.task.empty()) return query.command;
    std::vector<const char*> values;
    for (const auto& value : query.values) values.push_back(value ? value->c_str() : nullptr);
    char* text = nullptr;
    char* reason = nullptr;
    const bool good = composer && callAgent([&] {
        text = composer(query.task.c_str(), values.data(), static_cast<int>(values.size()), &reason);
    });
    *why = reason ? reason : "the agent makes no command of these parameters";
    std::optional<std::string> made;
    if (good && text) made = text;
    std::free(text);
    std::free(reason);
    return made;
}

std::unique_ptr<CommandRequest> makeRequest(const ActionQuery& query, const char* originNode) {
    auto spec = std::make_shared<RequestSpec>();
    spec->table = query.table;
    spec->situation = query.situation;
    if (query.table.empty()) spec->table = query.subnode.empty() ? HBX_ACTION_TABLE : HBX_SUBNODE_ACTION_TABLE;
    if (query.subnode.empty()) {
        spec->originNode = originNode;
    } else {
        spec->subnodes.push_back(query.subnode);
        spec->destination = query.subnode;
    }
    RequestDetail detail(spec);
    ContextInfo context;
    return std::make_unique<CommandRequest>(&detail, &context, nullptr);
}

void start(const std::shared_ptr<Run>& run, const ActionQuery& query, HBX_CommandCallback callback,
           HBX_CommandComposer composer, std::shared_ptr<TableEntry> table, const char* originNode) {
    HOST_TRACE_FUNCTION();
    const AgentCall inside;  // from the making of its requests to their end, also between the calls
    std::string why;
    std::optional<std::string> command = compose(composer, query, &why);
    if (!command) return report(*run, SampleStatus::Failed, why);
    run->command = std::move(*command);
    run->started = std::chrono::steady_clock::now();
    run->request = makeRequest(query, originNode);
    run->capsule = std::make_unique<AghbxAutomationCapsule>(
        run->command.c_str(), query.user.empty() ? nullptr : query.user.c_str(), run->request.get());
    // The capsule keeps the run alive until it is finished; an agent that never finishes it keeps both.
    run->capsule->impl()->onFinished = [run] { report(*run, SampleStatus::Ok); };
    ActionRows rows(std::move(table));
    {
        const std::lock_guard guard(run->mutex);
        run->rows = &rows;
    }
    const bool good = callAgent([&] { callback(run->capsule.get()); });
    {
        const std::lock_guard guard(run->mutex);
        run->rows = nullptr;
    }
    if (good) return;
    host_trace_error("the command callback threw");
    std::function<void()> drop;
    {
        const std::lock_guard guard(run->capsule->impl()->mutex);
        drop = std::move(run->capsule->impl()->onFinished);
        run->capsule->impl()->onFinished = nullptr;
        run->capsule->impl()->finished = true;
    }
    if (drop) report(*run, SampleStatus::Failed);
}

}  // namespace

void finishCapsule(AghbxAutomationCapsule* capsule) {
    std::function<void()> tell;
    {
        const std::lock_guard guard(capsule->impl()->mutex);
        if (capsule->impl()->finished) return;
        capsule->impl()->finished = true;
        tell = std::move(capsule->impl()->onFinished);
        capsule->impl()->onFinished = nullptr;
    }
    if (tell) tell();  // may end the capsule together with `tell`
}

int runCommandHere(const std::string& command, const char* user, aghbx* request) {
    const HBX_CommandCallback callback = framework().agent.callback();
    if (!callback) return -1;
    AghbxAutomationCapsule capsule(command.c_str(), user, request);
    if (!callAgent([&] { callback(&capsule); })) return -1;
    return capsule.Finished() ? capsule.Results() : -1;
}

SampleStatus ActionBroker::run(const ActionQuery& query, Done done) {
    const HBX_CommandCallback callback = agent_.callback();
    if (!broker_.ready() || !callback) return SampleStatus::NotReady;
    if (unfinished_->fetch_add(1) >= kMaxUnfinished) {
        unfinished_->fetch_sub(1);
        return SampleStatus::Busy;
    }
    auto run = std::make_shared<Run>();
    run->done = std::move(done);
    run->unfinished = unfinished_;
    const HBX_CommandComposer composer = commands_.composer();
    auto table = tableOfActions(catalog_);
    const auto submitted = broker_.run(this, [run, query, callback, composer, table, node = agent_.originNode()](bool now) {
        if (now)
            start(run, query, callback, composer, table, node);
        else
            report(*run, SampleStatus::Stopping);
    });
    if (submitted == RequestPool::Submitted::Accepted) return SampleStatus::Ok;
    return submitted == RequestPool::Submitted::Busy ? SampleStatus::Busy : SampleStatus::Stopping;
}

}  // namespace almanac::host
