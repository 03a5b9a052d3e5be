#include "runtime/check/AvailabilityCheck.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "providers/local/availability/AvailabilityList.h"

namespace {

// What a flag of a filter compares.
constexpr struct {
    const char* flag;
    const char* text;
} kComparisons[] = {{"matchfullname", "fullname"},
                    {"matcharg", "arg"},
                    {"matchfullarg", "arg"},
                    {"matchargwithvalue", "arg"},
                    {"matchargwithvalue", "value"}};

std::size_t placeOf(const XmlElement& e, const char* attribute) {
    const XmlAttribute* found = e.find(attribute);
    return found ? found->valueOffset : e.offset;
}

bool isTrue(const XmlElement& e, const char* attribute) {
    const char* value = e.value(attribute);
    return value && std::string(value) == "true";
}

class AvailabilityCheck {
  public:
    explicit AvailabilityCheck(std::vector<Problem>* problems) : problems_(problems) {}

    // Cells meet attributes by position alone: the i-th column writes the i-th attribute behind the time stamp.
    void checkColumns(const XmlElement& group) {
        std::vector<const XmlElement*> attributes;
        for (const XmlElement& child : group.children) {
            if (child.name == "attr" && child.value("name")) attributes.push_back(&child);
        }
        const FixedMetric* column = AVAIL_METRICS;
        for (std::size_t i = 1; i < attributes.size(); ++i) {
            checkColumn(*attributes[i], *column);
            if (column->name) ++column;
        }
    }

    void checkFilter(const XmlElement& filter) {
        const char* name = filter.value("procname");
        for (const auto& c : kComparisons) {
            if (!isTrue(filter, c.flag)) continue;
            const std::string flag = std::string("'") + c.flag + "'";
            if (name && std::string(name) == "*") {
                tell(placeOf(filter, c.flag), Problem::Warning, flag + " plays no part: '*' matches every process");
            } else if (!filter.value(c.text)) {
                tell(placeOf(filter, c.flag), Problem::Error, flag + " compares nothing without the attribute '" + c.text + "'");
            }
        }
    }

    // As the agent reads them, an rc belongs to the app_ping before it, whether inside or behind.
    void checkSection(const XmlElement& section) {
        const XmlElement* test = nullptr;  // without an rc so far
        bool any = false;
        const auto endTest = [&] {
            if (test) tell(test->offset, Problem::Warning, "the test has no rc element: whatever its exit code, it tells nothing");
            test = nullptr;
        };
        for (const XmlElement& e : section.children) {
            if (e.name == "process") checkFilter(e);
            if (e.name == "app_ping") {
                endTest();
                any = true;
                if (!hasCode(e)) test = &e;
            } else if (e.name == "rc") {
                if (!any) tell(e.offset, Problem::Error, "the rc stands in no app_ping; it is left out");
                test = nullptr;
            }
        }
        endTest();
    }

  private:
    void tell(std::size_t offset, Problem::Severity severity, const std::string& text) {
        problems_->push_back({offset, severity, text});
    }

    void checkColumn(const XmlElement& attribute, const FixedMetric& column) {
        std::string name = attribute.value("name");
        if (name[0] == '-') name.erase(0, 1);
        if (!column.name) {
            tell(attribute.offset, Problem::Error, "attribute '" + name + "' gets no value: the table has no column left");
            return;
        }
        const char* typeText = attribute.value("type");
        const int type = typeText ? std::atoi(typeText) : 0;
        const bool isText = column.rawType == STRING_DATA;
        if (name != column.name && isColumn(name)) {
            tell(placeOf(attribute, "name"), Problem::Error,
                 "'" + name + "' meets the column '" + column.name + "': cells match attributes by position, not by name");
        } else if (isText != (type == 1 || type == 2)) {
            tell(placeOf(attribute, "type"), Problem::Error,
                 std::string("the column '") + column.name + "' is a " + (isText ? "text" : "number"));
        }
    }

    static bool hasCode(const XmlElement& test) {
        return std::any_of(test.children.begin(), test.children.end(), [](const XmlElement& e) { return e.name == "rc"; });
    }

    static bool isColumn(const std::string& name) {
        const FixedMetric* column = AVAIL_METRICS;
        while (column->name && name != column->name) ++column;
        return column->name != nullptr;
    }

    std::vector<Problem>* problems_;
};

}  // namespace

void checkAvailability(const std::vector<const XmlElement*>& sections, const XmlElement* group, std::vector<Problem>* problems) {
    AvailabilityCheck check(problems);
    if (group) check.checkColumns(*group);
    for (const XmlElement* section : sections) check.checkSection(*section);
}
