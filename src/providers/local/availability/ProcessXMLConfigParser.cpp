// The section `process_list` of the reference file.
#include <cstring>

#include "providers/local/availability/AvailabilityXMLConfigParser.h"

namespace {

class ProcessXMLConfigParser : public AvailabilityXMLConfigParser {
  public:
    ProcessXMLConfigParser() : AvailabilityXMLConfigParser("process_list") {}

    void startElement(const char* name, HashMap* attributes) override {
        TRACE_FUNCTION();
        trace_detail("Tag: %s\n", name);
        if (std::strcmp(name, "process") != 0) return;
        ProcessFilter filter;
        const char* component = getText(attributes, "name");
        filter.applicationComponent = required(attributes, name, "name", component);
        filter.baseName = required(attributes, name, "procname", component);
        filter.useFullName = getBoolean(attributes, "matchfullname");
        filter.useArg = getBoolean(attributes, "matcharg");
        filter.useFullArg = getBoolean(attributes, "matchfullarg");
        filter.useArgWithValue = getBoolean(attributes, "matchargwithvalue");
        const bool usesArg = filter.useArg || filter.useFullArg || filter.useArgWithValue;
        const auto text = [&](const char* attribute, bool used) {
            return used ? required(attributes, name, attribute, component) : getText(attributes, attribute);
        };
        filter.fullName = text("fullname", filter.useFullName);
        filter.arg = text("arg", usesArg);
        filter.value = text("value", filter.useArgWithValue);
        filter.includeChildProcesses = getBoolean(attributes, "includeChildProcesses");
        filter.childApplicationComponent = getText(attributes, "childApplicationCompName");
        requireAvailabilityList()->addProcess(filter);
    }
};

[[maybe_unused]] ProcessXMLConfigParser& processParser = *new ProcessXMLConfigParser;

}  // namespace
