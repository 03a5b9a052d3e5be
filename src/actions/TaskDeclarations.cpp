#include "actions/TaskDeclarations.h"

#include <cstring>
#include <string>
#include <vector>

#include "actions/TaskLibrary.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"

namespace {

constexpr HBX_CommandInfo kOwn[] = {
    {"ADDCONFIG", HBX_COMMAND_BRACKETS, "Adds a section to the configuration: ADDCONFIG[NAME:ID][PROPERTY=VALUE]...", nullptr, 0},
    {"REMOVECONFIG", HBX_COMMAND_BRACKETS, "Removes a section of the configuration: REMOVECONFIG[NAME:ID]", nullptr, 0},
    {"SHUTDOWN", HBX_COMMAND_WHOLE, "Ends the agent after five seconds", nullptr, 0},
};

char* composeCommand(const char* name, const char* const* values, int count, char** why) {
    TRACE_FUNCTION();
    const TaskElement* task = taskLibrary ? taskLibrary->findTaskElement(name) : nullptr;
    if (!task) return nullptr;
    std::string reason;
    const auto request = task->composeRequest(std::vector<const char*>(values, values + count), &reason);
    if (!request) *why = strdup(reason.c_str());
    return request ? strdup(request->c_str()) : nullptr;
}

void declare(const TaskElement& task) {
    std::vector<HBX_CommandParameter> parameters;
    for (const auto& p : task.parameters()) parameters.push_back({p->getName(), p->getDefaultValue()});
    const HBX_CommandInfo info = {task.getTaskName(), HBX_COMMAND_WORD, task.getFriendlyName(), parameters.data(),
                                  static_cast<int>(parameters.size())};
    HBX_DeclareCommand(&info);
}

}  // namespace

void declareTasks() {
    TRACE_FUNCTION();
    for (const HBX_CommandInfo& info : kOwn) HBX_DeclareCommand(&info);
    HBX_RegisterCommandComposer(composeCommand);
    if (!taskLibrary) return;
    for (ListCursor c = taskLibrary->getTaskElementListCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto& task = *static_cast<const TaskElement*>(c.getCurrentElement());
        if (taskLibrary->findTaskElement(task.getTaskName()) == &task) declare(task);
    }
}
