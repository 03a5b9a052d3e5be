#include "actions/TaskHandler.h"

#include <mutex>
#include <unordered_map>

#include "actions/TaskName.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

constinit std::mutex lock;

// With the lock held. Never destroyed: a task may run while the process ends.
std::unordered_map<std::string, TaskHandler*>& taskHandlerMap() {
    static auto* const made = new std::unordered_map<std::string, TaskHandler*>;
    return *made;
}

}  // namespace

std::string foldedTaskName(std::string_view name) {
    std::string folded(name);
    ZSV1_ToLower(folded.data());
    return folded;
}

void registerTaskHandler(const char* taskName, TaskHandler* handler) {
    TRACE_FUNCTION();
    if (!taskName) {
        trace_error("A task handler without a name is not registered");
        return;
    }
    const std::lock_guard guard(lock);
    if (handler) {
        taskHandlerMap()[foldedTaskName(taskName)] = handler;
    } else {
        taskHandlerMap().erase(foldedTaskName(taskName));
    }
}

TaskHandler* findTaskHandler(const char* taskName) {
    if (!taskName) return nullptr;
    const std::lock_guard guard(lock);
    const auto found = taskHandlerMap().find(foldedTaskName(taskName));
    return found == taskHandlerMap().end() ? nullptr : found->second;
}
