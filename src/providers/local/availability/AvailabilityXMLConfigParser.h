// What the parsers of `process_list` and `app_ping_list` share: both fill the one availability table.
#pragma once

#include "foundation/HashMap.h"
#include "foundation/Trace.h"
#include "providers/local/availability/AvailabilityList.h"
#include "runtime/reference/XMLConfigParser.h"

class AvailabilityXMLConfigParser : public XMLConfigParser {
  protected:
    // Registers itself for the section; the name is kept as it comes.
    explicit AvailabilityXMLConfigParser(const char* section) : section_(section) {
        registerXMLConfigParser(section, this);
    }

    // An attribute's text, or null with an error line; `owner`, which may be null, says whose it is.
    const char* required(const HashMap* attributes, const char* element, const char* name, const char* owner) const {
        TRACE_MESSAGES();
        const char* text = getText(attributes, name);
        if (!text) {
            trace_error("%s: attribute %s is missing for %s %s; it counts as empty", section_, name, element,
                        owner ? owner : "");
        }
        return text;
    }
    const char* section() const { return section_; }

  private:
    const char* section_;
};
