#include "runtime/check/AvailabilityCheck.h"

#include <cstdlib>
#include <set>
#include <string>

#include "providers/local/availability/AvailabilityList.h"

namespace {

constexpr const char* kWhiteSpace = " \t\r\n";
constexpr const char* kWhiteSpaceAndEquals = " \t\r\n=";

// What a flag of a filter compares, and where that cannot go on.
struct Comparison {
    const char* flag;
    const char* text;
    const char* cuts = "";
    const char* cutsText = "";
};
constexpr Comparison kComparisons[] = {
    {"matchfullname", "fullname", " ", "the first blank"},
    {"matcharg", "arg"},
    {"matchfullarg", "arg", kWhiteSpace, "white space"},
    {"matchargwithvalue", "arg", kWhiteSpaceAndEquals, "white space and '='"},
    {"matchargwithvalue", "value", kWhiteSpaceAndEquals, "white space and '='"},
};

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

    // As the agent reads them, in the order of the file: an rc belongs to the app_ping before it, whether inside or behind.
    void checkSection(const XmlElement& section) {
        test_ = nullptr;
        codes_.clear();
        walk(section);
        endTest();
        if (section.children.empty()) {
            tell(section.offset, Problem::Warning, "the section is empty: without a filter or a test anywhere there is no table");
        }
    }

  private:
    void tell(std::size_t offset, Problem::Severity severity, const std::string& text) {
        problems_->push_back({offset, severity, text});
    }
    void warn(const XmlElement& e, const char* attribute, const std::string& text) {
        tell(placeOf(e, attribute), Problem::Warning, text);
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

    void walk(const XmlElement& e) {
        if (e.name == "process") checkFilter(e);
        if (e.name == "app_ping") beginTest(e);
        if (e.name == "rc") checkReturnCode(e);
        for (const XmlElement& child : e.children) walk(child);
    }

    void checkFilter(const XmlElement& filter) {
        const char* name = filter.value("procname");
        if (name) checkBaseName(filter, name);
        for (const auto& c : kComparisons) {
            if (isTrue(filter, c.flag)) checkComparison(filter, c, name && std::string(name) == "*");
        }
        for (const char* text : {"fullname", "arg", "value"}) checkUse(filter, text);
        if (filter.find("childApplicationCompName") && !isTrue(filter, "includeChildProcesses")) {
            warn(filter, "childApplicationCompName",
                 "'childApplicationCompName' plays no part: 'includeChildProcesses' is not \"true\"");
        }
    }

    void checkBaseName(const XmlElement& filter, const std::string& name) {
        if (name.empty()) {
            warn(filter, "procname", "an empty 'procname' is not '*': next to no process has an empty base name");
        } else if (name.find("${") == std::string::npos && name.find_first_of("/ ") != std::string::npos) {
            warn(filter, "procname",
                 "no base name holds a '/' or a blank: nothing matches; a path is compared by 'matchfullname', arguments by 'matcharg'");
        } else if (name != "*" && name.find('*') != std::string::npos) {
            warn(filter, "procname", "'*' stands for other names only alone: '" + name + "' is compared as it is");
        }
    }

    void checkComparison(const XmlElement& filter, const Comparison& c, bool any) {
        const char* text = filter.value(c.text);
        if (any) {
            warn(filter, c.flag, std::string("'") + c.flag + "' plays no part: '*' matches every process");
        } else if (!text) {
            tell(placeOf(filter, c.flag), Problem::Error,
                 std::string("'") + c.flag + "' compares nothing without the attribute '" + c.text + "'");
        } else if (std::string(text).find("${") == std::string::npos && std::string(text).find_first_of(c.cuts) != std::string::npos) {
            warn(filter, c.text, std::string("'") + text + "' never matches: '" + c.flag + "' cuts the command line at " + c.cutsText);
        }
    }

    void checkUse(const XmlElement& filter, const char* text) {
        if (!filter.find(text)) return;
        std::string flags;
        for (const auto& c : kComparisons) {
            if (std::string(c.text) != text) continue;
            if (isTrue(filter, c.flag)) return;
            flags += std::string(flags.empty() ? "" : ", ") + "'" + c.flag + "'";
        }
        const bool one = flags.find(',') == std::string::npos;
        warn(filter, text, std::string("'") + text + "' plays no part: " + (one ? "" : "none of ") + flags + " is " +
                               (one ? "not " : "") + "\"true\"");
    }

    void beginTest(const XmlElement& test) {
        endTest();
        test_ = &test;
        const char* script = test.value("script");
        if (script && !*script) warn(test, "script", "an empty script always ends with exit code 0");
    }

    void endTest() {
        if (test_ && codes_.empty()) {
            tell(test_->offset, Problem::Warning, "the test has no rc element: whatever its exit code, it tells nothing");
        }
        test_ = nullptr;
        codes_.clear();
    }

    void checkReturnCode(const XmlElement& code) {
        if (!test_) {
            tell(code.offset, Problem::Error, "the rc stands in no app_ping; it is left out");
            return;
        }
        const char* rc = code.value("rc");
        const int number = rc ? std::atoi(rc) : 0;
        if (number < 0 || number > 255) warn(code, "rc", std::string("no command ends with ") + rc + ": exit codes are 0 to 255");
        if (!codes_.insert(number).second) {
            warn(code, "rc", "return code " + std::to_string(number) + " has a meaning already; the last one counts");
        }
    }

    static bool isColumn(const std::string& name) {
        const FixedMetric* column = AVAIL_METRICS;
        while (column->name && name != column->name) ++column;
        return column->name != nullptr;
    }

    std::vector<Problem>* problems_;
    const XmlElement* test_ = nullptr;  // the one that an rc belongs to
    std::set<int> codes_;               // of its return codes so far
};

}  // namespace

void checkAvailability(const std::vector<const XmlElement*>& sections, const XmlElement* group, std::vector<Problem>* problems) {
    AvailabilityCheck check(problems);
    if (group) check.checkColumns(*group);
    for (const XmlElement* section : sections) check.checkSection(*section);
}
