// The section `app_ping_list` of the reference file.
#include <cstring>

#include "providers/local/availability/AvailabilityXMLConfigParser.h"

namespace {

class AppPingXMLConfigParser : public AvailabilityXMLConfigParser {
  public:
    AppPingXMLConfigParser() : AvailabilityXMLConfigParser("app_ping_list") {}

    void startElement(const char* name, HashMap* attributes) override {
        TRACE_FUNCTION();
        trace_detail("Tag: %s\n", name);
        if (std::strcmp(name, "app_ping") == 0) {
            const char* component = required(attributes, name, "name", getText(attributes, "script"));
            current_ = new ApplicationPingListElement(component, required(attributes, name, "script", component));
            requireAvailabilityList()->addFunctionalityTest(current_);
        } else if (std::strcmp(name, "rc") == 0) {
            addReturnCode(attributes);
        }
    }
    void endElement(const char* name) override {
        if (std::strcmp(name, section()) == 0) current_ = nullptr;
    }

  private:
    void addReturnCode(const HashMap* attributes) {
        TRACE_FUNCTION();
        const char* code = getText(attributes, "rc");
        if (!current_) {
            trace_error("%s: rc %s stands in no app_ping; it is left out", section(), code ? code : "");
            return;
        }
        const char* component = current_->getApplicationComponent();
        auto* meaning = new ReturnCodeListElement(required(attributes, "rc", "rc", component), getText(attributes, "msg"));
        if (const char* type = getText(attributes, "type")) {
            meaning->setMappedReturnCode(type);
        } else {
            trace_error("%s: rc %s of %s has no type; it stands for no test", section(), code ? code : "", component);
        }
        current_->addReturnCode(meaning);
    }

    ApplicationPingListElement* current_ = nullptr;  // the availability table's
};

[[maybe_unused]] AppPingXMLConfigParser& appPingParser = *new AppPingXMLConfigParser;

}  // namespace
