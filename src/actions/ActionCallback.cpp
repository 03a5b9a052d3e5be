#include "actions/ActionCallback.h"

#include <pthread.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "actions/TaskLibrary.h"
#include "config/ConfigOpStatus.h"
#include "config/subnodes/ConfigSections.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"

namespace {

constexpr const char* kAddConfig = "ADDCONFIG";
constexpr const char* kRemoveConfig = "REMOVECONFIG";
constexpr int kOriginNodeSize = 32;  // bytes of the column

// ---- Shutdown -----------------------------------------------------------------------------------------------

constexpr long kShutdownDelay = 5000;  // milliseconds, in which the reply goes out
constexpr long kShutdownLook = 100;    // milliseconds between two looks for another end

constinit std::atomic<bool> shutdownIsComing{false};

long millisecondsSince(const timespec& start) {
    return static_cast<long>((Clock::seconds(Clock::monotonic()) - Clock::seconds(start)) * 1000.0);
}

void* shutdownThread(void*) {
    TRACE_FUNCTION();
    const timespec start = Clock::monotonic();
    // In short naps: a process that ends in another way meanwhile does not meet this thread half-way through its end.
    for (long slept = 0; slept < kShutdownDelay && !HBX_QueryShutdown(); slept = millisecondsSince(start)) {
        ZSV1_MilliSleep(static_cast<unsigned>(std::min(kShutdownLook, kShutdownDelay - slept)));
    }
    HBX_Shutdown(1);
    shutdownIsComing = false;
    return nullptr;
}

// False if the thread could not be started. A shutdown that is under way already is enough.
bool startShutdown() {
    TRACE_FUNCTION();
    if (shutdownIsComing.exchange(true)) return true;
    pthread_t thread{};
    const int rc = pthread_create(&thread, nullptr, shutdownThread, nullptr);
    if (rc == 0) {
        pthread_detach(thread);
        return true;
    }
    trace_error("Could not start the shutdown thread, rc = %d", rc);
    shutdownIsComing = false;
    return false;
}

// ---- Carrying out -------------------------------------------------------------------------------------------

using Text = std::unique_ptr<char, decltype(&std::free)>;

struct Action {
    const char* command;
    const char* user;  // may be null
    Text msn{nullptr, &std::free};
    Text key{nullptr, &std::free};  // of the subnode; null for the agent itself
    const char* owner = nullptr;
};

std::unique_ptr<TaskResult> shutDown(const Action& action) {
    if (startShutdown()) return std::make_unique<TaskResult>(action.command, "Shutting down...", RC_OK, 0);
    return std::make_unique<TaskResult>(action.command, "The shutdown could not be started.", RC_GENERAL_ERROR, TASK_FAILED);
}

std::unique_ptr<TaskResult> resultOf(const Action& action, const ConfigOpStatus& status) {
    const std::string name(action.command, std::strcspn(action.command, " ["));
    auto result = std::make_unique<TaskResult>(name.c_str(), "", RC_OK, 0);
    result->setOutcome(status.text, status.code, status.code);
    return result;
}

// Does what the capsule asks and sets its message and return code.
std::unique_ptr<TaskResult> carryOut(AghbxAutomationCapsule* capsule, const Action& action) {
    TRACE_FUNCTION();
    std::unique_ptr<TaskResult> result;
    if (strcasecmp(action.command, "SHUTDOWN") == 0) {
        result = shutDown(action);
    } else if (const std::unique_ptr<ConfigOpStatus> status = handleConfigUpdates(action.command)) {
        result = resultOf(action, *status);
    } else if (taskLibrary) {
        result = taskLibrary->executeTaskRequest(action.command, action.msn.get(), action.key.get(), action.user);
    } else {
        capsule->SetMessage("N/A");
        capsule->SetResults(-1);
        return std::make_unique<TaskResult>("N/A", "N/A", RC_NOT_RUN, -1);
    }
    capsule->SetMessage(result ? result->getMessage() : "N/A");
    capsule->SetResults(result ? result->getReturnCode() : -1);
    return result;
}

std::string withoutBlanks(const char* from, const char* to) {
    while (from < to && *from == ' ') ++from;
    while (to > from && to[-1] == ' ') --to;
    return std::string(from, to);
}

}  // namespace

int actionCallback(AghbxAutomationCapsule* capsule) {
    TRACE_FUNCTION();
    aghbx* const request = capsule->Request();
    Action action{capsule->Command() ? capsule->Command() : "", capsule->User()};
    if (action.user) {
        trace_state("Received Take action. Cmd=<%s>, User=<%s>", action.command, action.user);
    } else {
        trace_state("Received Take action. Cmd=<%s>", action.command);
    }
    char* name = nullptr;
    const bool isSubnode = request && determineName(request, 0, &name);
    action.msn.reset(name);
    trace_detail("Executing task from msn=\"%s\" which %s a subnode", name ? name : "", isSubnode ? "is" : "is not");
    // A function of the name alone: no action waits here until a slow discovery has given the subnode lock back.
    if (isSubnode) action.key.reset(SubnodeManager::getSubnodeKeyFromManagedSystemName(name, nullptr));
    if (request) {
        action.owner = std::strcmp(request->TableName(), HBX_ACTION_TABLE) == 0 ? action.user : request->SituationName();
    }
    const std::unique_ptr<TaskResult> result = carryOut(capsule, action);
    const int taskId = TaskLibrary::incrementTaskID();
    if (taskLibrary) {
        taskLibrary->sendActionStatus(action.command, result.get(), taskId, action.msn.get(), action.key.get(),
                                      action.owner);
    }
    if (request) request->FinishedAutomationCommand(capsule);  // the capsule may be gone behind it
    return 0;
}

bool commandNameIs(const char* command, const char* name) {
    if (!command || !name) return false;
    const std::size_t length = std::strlen(name);
    return std::strncmp(command, name, length) == 0 &&
           (command[length] == '\0' || command[length] == ' ' || command[length] == '[');
}

BracketArguments parseBracketArguments(const char* command) {
    BracketArguments arguments;
    const char* open = command ? std::strchr(command, '[') : nullptr;
    for (; open; open = std::strchr(open, '[')) {
        const char* from = open + 1;
        const char* to = from + std::strcspn(from, "]");  // a group that is not closed goes to the end
        open = to;
        if (arguments.present) {
            arguments.rest.push_back(withoutBlanks(from, to));
            continue;
        }
        arguments.present = true;
        const char* colon = std::find(from, to, ':');
        arguments.first = withoutBlanks(from, colon);
        arguments.hasSecond = colon != to;
        if (arguments.hasSecond) arguments.second = withoutBlanks(colon + 1, to);
    }
    return arguments;
}

std::unique_ptr<ConfigOpStatus> handleConfigUpdates(const char* command) {
    TRACE_FUNCTION();
    const bool adds = commandNameIs(command, kAddConfig);
    if (!adds && !commandNameIs(command, kRemoveConfig)) return nullptr;
    const BracketArguments arguments = parseBracketArguments(command);
    if (!arguments.present) {
        auto status = std::make_unique<ConfigOpStatus>();
        status->set(CONFIG_NO_ARGUMENTS, "No command arguments were specified.");
        trace_error("%s", status->text);
        return status;
    }
    const char* const id = arguments.hasSecond ? arguments.second.c_str() : nullptr;
    if (!adds) return std::unique_ptr<ConfigOpStatus>(removeAgentConfigSection(arguments.first.c_str(), id));
    std::vector<const char*> properties;
    properties.reserve(arguments.rest.size() + 1);
    for (const std::string& property : arguments.rest) properties.push_back(property.c_str());
    properties.push_back(nullptr);
    return std::unique_ptr<ConfigOpStatus>(addAgentConfigSection(arguments.first.c_str(), id, properties.data()));
}

bool determineName(aghbx* request, int row, char** name) {
    TRACE_FUNCTION();
    *name = nullptr;
    if (std::strcmp(request->TableName(), HBX_SUBNODE_ACTION_TABLE) == 0) {
        const char* node = request->DestinationNode();
        if (!node || !*node) {
            request->ResetGetSubnode();
            node = request->GetSubnode();
        }
        if (node && *node) *name = strdup(node);
        return true;
    }
    char node[kOriginNodeSize + 1];
    int length = request->GetDataColumn(row, "ORIGINNODE", node, kOriginNodeSize);
    while (length > 0 && node[length - 1] == ' ') --length;
    if (length > 0) *name = strndup(node, static_cast<std::size_t>(length));
    return false;
}
