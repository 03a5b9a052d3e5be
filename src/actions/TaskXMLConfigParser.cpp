// The `task` section of the reference file: one task with its parameters and the meaning of its return codes.
#include <cstring>
#include <memory>

#include "actions/TaskLibrary.h"
#include "foundation/HashMap.h"
#include "foundation/Trace.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

class TaskXMLConfigParser : public XMLConfigParser {
  public:
    TaskXMLConfigParser() { registerXMLConfigParser("task", this); }
    void startElement(const char* name, HashMap* attributes) override;
    void endElement(const char* name) override;

  private:
    TaskElement* task_ = nullptr;  // the library's
};

void TaskXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    trace_detail("Tag: %s\n", name);
    const auto text = [attributes](const char* attribute) { return getText(attributes, attribute); };
    if (std::strcmp(name, "task") == 0) {
        task_ = nullptr;
        if (!taskLibrary) {
            trace_error("There is no task library for task '%s'", text("key") ? text("key") : "");
            return;
        }
        if (!text("command")) trace_error("Task '%s' has no command", text("key") ? text("key") : "");
        task_ = new TaskElement(text("key"), text("command"), text("name"));
        taskLibrary->addTaskElement(task_);
    } else if (!task_) {
        return;
    } else if (std::strcmp(name, "param") == 0) {
        task_->addParameter(std::make_unique<TaskParameter>(text("name"), text("default"), text("quote"), text("startDelim"),
                                                            text("endDelim"), text("overlapDelim")));
    } else if (std::strcmp(name, "rc") == 0) {
        auto code = std::make_unique<ReturnCodeListElement>(text("rc"), text("msg"));
        code->setMappedReturnCode(text("type"));
        task_->addReturnCode(std::move(code));
    }
}

void TaskXMLConfigParser::endElement(const char* name) {
    if (std::strcmp(name, "task") == 0) task_ = nullptr;
}

[[maybe_unused]] TaskXMLConfigParser& taskParser = *new TaskXMLConfigParser;

}  // namespace
