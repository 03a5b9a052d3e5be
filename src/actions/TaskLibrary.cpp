#include "actions/TaskLibrary.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "actions/ActionCallback.h"
#include "actions/TakeActionStatus.h"
#include "actions/TaskLog.h"
#include "actions/TaskName.h"
#include "actions/TaskOutput.h"
#include "config/ConfigOpStatus.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"

TaskLibrary* taskLibrary = nullptr;

namespace {

constexpr int kDefaultTimeout = 20;   // seconds
constexpr int kShortestTimeout = 10;  // seconds
constexpr std::size_t kLongestLogName = 64;
constexpr std::size_t kLongestOutput = std::size_t{64} << 20;  // bytes of a task's output
constexpr const char* kUndefined = "<TASK NOT DEFINED FOR INTERP>";
constexpr const char* kInternalError =
    "KXX9999E There was an internal error with the task request.  The task will not be run.";
constexpr const char* kNotSupported = "KXX9998E This task is not supported on this platform.  The task will not be run.";

int readTimeout() {
    TRACE_FUNCTION();
    const char* text = ZSV1_GetEnv("CDP_DP_ACTION_TIMEOUT");
    if (!text) {
        trace_detail("TaskLibrary timeout for Actions not set, setting to default %d\n", kDefaultTimeout);
        return kDefaultTimeout;
    }
    const long long seconds = std::strtoll(text, nullptr, 10);
    if (seconds <= kShortestTimeout) {
        trace_detail("TaskLibrary timeout set to minimum %d\n", kShortestTimeout);
        return kShortestTimeout;
    }
    const auto timeout = static_cast<int>(std::min<long long>(seconds, INT_MAX));
    trace_detail("TaskLibrary timeout for actions set to %d\n", timeout);
    return timeout;
}

// For programs of the task itself, which write their log there. The first word of a free command is as long as the caller
// likes and may be a path: neither may spoil the environment of all commands that follow.
void nameTaskLog(const std::string& task) {
    std::string name = task.substr(0, kLongestLogName);
    std::replace(name.begin(), name.end(), '/', '_');
    char time[2 * sizeof(long) + 1];
    std::snprintf(time, sizeof time, "%08lX", static_cast<unsigned long>(Clock::wall().tv_sec));
    setEnvVarForBat("TASKLOGNAME", name.c_str(), time);
}

// `told` is what the handler itself says of its result, if it does.
void setOutcome(TaskResult* result, int raskRC, ListCursor codes, const std::string& told) {
    TRACE_FUNCTION();
    if (raskRC == TASK_TIMED_OUT) {
        result->setOutcome("Take Action did not complete in allowed time.", raskRC, raskRC);
        return;
    }
    for (; codes.hasMoreElements(); codes.setToNext()) {
        const auto* elem = static_cast<const ReturnCodeListElement*>(codes.getCurrentElement());
        trace_detail("comparing elem->getApplicationReturnCode()=%d to raskRC=%d", elem->getApplicationReturnCode(), raskRC);
        if (elem->getApplicationReturnCode() != raskRC) continue;
        result->setOutcome(elem->getMessage(), elem->getMappedReturnCode(), raskRC);
        return;
    }
    const char* message = raskRC == 0 ? "" : "Error running command";
    result->setOutcome(told.empty() ? message : told.c_str(), raskRC, raskRC);
}

}  // namespace

TaskResult::TaskResult(const char* taskName, const char* message, RETURN_CODE code, int applicationCode)
    : taskName_(taskName ? taskName : ""),
      message_(message ? message : ""),
      returnCode_(code),
      applicationCode_(applicationCode) {}

TaskResult::~TaskResult() {
    for (List* list : {&instances_, &output_}) {
        while (void* text = list->pop()) std::free(text);
    }
}

void TaskResult::setOutcome(const char* message, int code, int applicationCode) {
    message_ = message ? message : "";
    returnCode_ = code;
    applicationCode_ = applicationCode;
}

TaskLibrary::TaskLibrary(const char* name) : timeout_(readTimeout()) {
    TRACE_FUNCTION();
    trace_detail("task library of %s", name ? name : "");
}

TaskLibrary::~TaskLibrary() {
    TRACE_FUNCTION();
    {
        const std::lock_guard guard(runningLock_);
        running_.cleanupFinishedCommands();
        running_.letGoOfAll();
    }
    while (first_) {
        auto* next = static_cast<TaskElement*>(first_->getNextElement());
        delete first_;
        first_ = next;
    }
}

void TaskLibrary::addTaskElement(TaskElement* element) {
    TRACE_FUNCTION();
    if (!element) return;
    element->setPrevElement(last_);
    if (last_) {
        last_->setNextElement(element);
    } else {
        first_ = element;
    }
    last_ = element;
    const std::string_view key = element->getTaskName();
    const char* why = key.empty() ? "no key" : "a key of several words";
    // The first word of a command never is a key with a blank in it: made into a command, its text would be free text.
    if (!key.empty() && key.find(' ') == std::string_view::npos) {
        if (byName_.emplace(foldedTaskName(key), element).second) return;
        why = "the key of another one";
    }
    trace_error("Task '%s' has %s: no command reaches it", element->getFriendlyName(), why);
}

const TaskElement* TaskLibrary::findTaskElement(std::string_view name) const {
    const auto found = byName_.find(foldedTaskName(name));
    return found == byName_.end() ? nullptr : found->second;
}

std::unique_ptr<TaskResult> TaskLibrary::executeTaskRequest(const char* command, const char* msn, const char* key,
                                                            const char* user) {
    TRACE_FUNCTION();
    const std::string text = command ? command : "";
    TaskRequestInfo info{text.substr(0, text.find(' ')), user ? user : "", text, key ? key : ""};
    trace_detail("taskInfo.name = %s\n", info.name.c_str());
    trace_detail("for msn=\"%s\", subnode key=\"%s\"", msn ? msn : "", info.subnode.c_str());
    const TaskElement* task = findTaskElement(info.name);
    if (!task) {
        trace_detail("Did not find Task name '%s'.  Going to run 'system' on the request %s.\n", info.name.c_str(),
                     text.c_str());
        const std::string name = info.name;
        return perform(std::move(info), name.c_str(), ListCursor(nullptr));
    }
    info.name = task->getTaskName();
    std::optional<std::string> expanded = task->getTaskCommand(text);
    if (!expanded) {
        trace_error("Error attempting to run task '%s'.  This task will not be run.  Task buffer is '%s'.\n",
                    info.name.c_str(), text.c_str());
        return std::make_unique<TaskResult>(task->getFriendlyName(), kInternalError, RC_NOT_RUN, TASK_FAILED);
    }
    info.command = std::move(*expanded);
    if (strcasecmp(info.command.c_str(), kUndefined) == 0) {
        trace_error(
            "Error attempting to run task '%s'.  This task does not run on this platform. taskInfo.command is '%s'.\n",
            info.name.c_str(), info.command.c_str());
        return std::make_unique<TaskResult>(task->getFriendlyName(), kNotSupported, RC_NOT_RUN, TASK_FAILED);
    }
    return perform(std::move(info), task->getFriendlyName(), task->getReturnCodeListCursor());
}

std::unique_ptr<TaskResult> TaskLibrary::perform(TaskRequestInfo info, const char* shownName, ListCursor codes) {
    TRACE_FUNCTION();
    auto result = std::make_unique<TaskResult>(shownName, "N/A", RC_OK, 0);
    nameTaskLog(info.name);
    TaskHandler* const handler = findTaskHandler(info.name.c_str());
    trace_detail("Executing task %s", shownName);
    std::string told;
    const int raskRC = handler ? handler->handleTaskRequest(std::move(info), result->getInstances(), result->getOutput())
                               : run(info, result->getInstances(), result->getOutput(), &told);
    trace_detail("Finished Executing task %s raskRC=%d", shownName, raskRC);
    setOutcome(result.get(), raskRC, codes, told);
    return result;
}

int TaskLibrary::handleTaskRequest(TaskRequestInfo info, List* instances, List* output) {
    return run(info, instances, output, nullptr);
}

// Whether fewer than ten commands are still running behind their time-out.
bool TaskLibrary::mayStart(const char* command) {
    const std::lock_guard guard(runningLock_);
    if (running_.getCount() == 0) return true;
    running_.cleanupFinishedCommands();
    return !running_.tooManyOutstanding(command);
}

// `told`, if not null, becomes the text of a configuration change's status.
int TaskLibrary::run(const TaskRequestInfo& info, List* instances, List* output, std::string* told) {
    TRACE_FUNCTION();
    if (!mayStart(info.command.c_str())) return TASK_TIMED_OUT;
    // Behind the parameters: a value's ${NAME} is held to the same names as the reference file's.
    char* substituted = Utilities::substituteEnvVars(info.command.c_str(), nullptr, nullptr, false);
    const std::string text = substituted ? substituted : "";
    std::free(substituted);
    if (const std::unique_ptr<ConfigOpStatus> status = handleConfigUpdates(text.c_str())) {
        if (told) *told = status->text;
        return status->code;
    }
    auto command = std::make_unique<CommandWithTimeout>(text.c_str(), timeout_);
    command->keepOutput(kLongestOutput);
    const int result = command->runCommand();
    if (result == 0) {
        const bool single = ZSV1_GetEnv("CDP_ACTION_SINGLE_EVENT") != nullptr;
        const char* bytes = command->getStdout();
        const TaskEvents events = single ? TaskEvents::OneForAll : TaskEvents::OneForEachLine;
        if (!readTaskOutput(bytes ? bytes : "", events, instances, output)) {
            trace_error("Task %s wrote more than %d lines; the rest is left out", info.name.c_str(), kMostTaskLines);
        }
        return command->getRC();
    }
    if (result == 1) {
        trace_error("Task thread failed with timeout error. Task was %s", text.c_str());
        const std::lock_guard guard(runningLock_);
        running_.add(command.release());
        return TASK_TIMED_OUT;
    }
    trace_error("Task thread failed with general command error. Task was %s", text.c_str());
    return TASK_FAILED;
}

void TaskLibrary::sendActionStatus(const char* command, TaskResult* result, int taskId, const char* msn, const char* key,
                                   const char* user) {
    TakeActionStatus* const status = status_;
    if (status && result) status->sendTaskEvent(command, result, taskId, msn, key, user);
}

void TaskLibrary::sendDownHeartBeat() {
    TRACE_FUNCTION();
    // The framework tells by itself that the agent has gone; there is nobody else to tell.
    trace_detail("the task library ends");
}

int TaskLibrary::incrementTaskID() {
    static constinit std::atomic<int> task_id{0};
    return ++task_id;
}
