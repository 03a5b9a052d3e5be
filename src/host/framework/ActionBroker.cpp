#include "host/framework/ActionBroker.h"

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

// One command between its start and the later of "the callback has returned" and "the agent has finished it".
struct Run {
    std::unique_ptr<CommandRequest> request;
    std::unique_ptr<AghbxAutomationCapsule> capsule;
    ActionBroker::Done done;
    std::shared_ptr<std::atomic<std::size_t>> unfinished;

    ~Run() { unfinished->fetch_sub(1); }
};

void report(Run& run, SampleStatus status) {
    ActionResult result;
    result.status = status;
    if (status == SampleStatus::Ok) {
        result.returnCode = run.capsule->Results();
        result.message = run.capsule->Message();
    }
    run.done(std::move(result));
}

void start(const std::shared_ptr<Run>& run, const ActionQuery& query, HBX_CommandCallback callback) {
    HOST_TRACE_FUNCTION();
    auto spec = std::make_shared<RequestSpec>();
    spec->table = query.table;
    spec->situation = query.situation;
    if (!query.subnode.empty()) spec->subnodes.push_back(query.subnode);
    RequestDetail detail(spec);
    ContextInfo context;
    run->request = std::make_unique<CommandRequest>(&detail, &context, nullptr);
    run->capsule = std::make_unique<AghbxAutomationCapsule>(
        query.command.c_str(), query.user.empty() ? nullptr : query.user.c_str(), run->request.get());
    // The capsule keeps the run alive until it is finished; an agent that never finishes it keeps both.
    run->capsule->impl()->onFinished = [run] { report(*run, SampleStatus::Ok); };
    const bool good = callAgent([&] { callback(run->capsule.get()); });
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
    const auto submitted = broker_.run(this, [run, query, callback](bool now) {
        if (now)
            start(run, query, callback);
        else
            report(*run, SampleStatus::Stopping);
    });
    if (submitted == RequestPool::Submitted::Accepted) return SampleStatus::Ok;
    return submitted == RequestPool::Submitted::Busy ? SampleStatus::Busy : SampleStatus::Stopping;
}

}  // namespace almanac::host
