#include "runtime/check/TaskCheck.h"

#include <strings.h>

#include <cstdlib>
#include <set>

#include "exec/ReturnCodeListElement.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"
#include "runtime/check/Words.h"

namespace {

// Whether that byte of a shell's command stands between single or double quotes (POSIX.1-2017, 2.2). Quotes of
// their own in a command substitution are not told from those around it.
bool isInQuotes(const std::string& command, std::size_t at) {
    char open = '\0';
    for (std::size_t i = 0; i < at; ++i) {
        const char c = command[i];
        if (c == '\\' && open != '\'') {
            ++i;
        } else if (c == open) {
            open = '\0';
        } else if (open == '\0' && (c == '"' || c == '\'')) {
            open = c;
        }
    }
    return open != '\0';
}

class TaskCheck {
  public:
    TaskCheck(const std::string& text, std::vector<Problem>* problems) : text_(text), problems_(problems) {}

    void check(const XmlElement& task) {
        checkKey(task);
        const XmlAttribute* command = task.find("command");
        if (command) checkReferences(*command);
        std::set<int> codes;
        for (const XmlElement& child : task.children) {
            if (child.name == "param") checkParameter(child, command);
            if (child.name == "rc") checkReturnCode(child, &codes);
        }
    }

  private:
    void tell(std::size_t offset, Problem::Severity severity, const std::string& text) {
        problems_->push_back({offset, severity, text});
    }
    void warn(const XmlElement& e, const char* attribute, const std::string& text) {
        const XmlAttribute* found = e.find(attribute);
        tell(found ? found->valueOffset : e.offset, Problem::Warning, text);
    }

    void checkKey(const XmlElement& task) {
        const XmlAttribute* key = task.find("key");
        if (!key) return;
        if (key->value.empty() || key->value.find(' ') != std::string::npos) {
            tell(key->valueOffset, Problem::Error, "no command reaches this task: its key is the first word of a command");
        }
        for (const char* own : {"ADDCONFIG", "REMOVECONFIG", "SHUTDOWN"}) {
            if (strcasecmp(key->value.c_str(), own) != 0) continue;
            warn(task, "key", std::string("the agent's own command ") + own + " stands in front of this task");
        }
        std::string folded = key->value;
        ZSV1_ToLower(folded.data());
        if (!keys_.insert(folded).second) {
            tell(key->valueOffset, Problem::Error,
                 "no command reaches this task: another one ahead has the key '" + key->value + "' (in any case of letters)");
        }
    }

    // They are replaced when the task runs, among the allowed names only.
    void checkReferences(const XmlAttribute& command) {
        for (std::size_t open = command.value.find("${"); open != std::string::npos; open = command.value.find("${", open + 2)) {
            const std::size_t end = command.value.find_first_of("}\n", open);
            if (end == std::string::npos || command.value[end] == '\n') continue;
            const std::string name = command.value.substr(open + 2, end - open - 2);
            if (isSubstituteAllowed(name.c_str())) continue;
            tell(placeInValue(text_, command, open), Problem::Error,
                 "'${" + name + "}' may not be substituted and disappears; write $NAME where the shell is to replace it");
        }
    }

    void checkParameter(const XmlElement& parameter, const XmlAttribute* command) {
        const char* name = parameter.value("name");
        if (name && command && (!*name || command->value.find(name) == std::string::npos)) {
            warn(parameter, "name", std::string("the task's command does not hold '") + name + "': the value goes nowhere");
        }
        checkQuotes(parameter, name, command);
        const auto isEmpty = [&](const char* attribute) { return !parameter.value(attribute) || !*parameter.value(attribute); };
        if (isEmpty("startDelim")) {
            warn(parameter, "startDelim", "without a start delimiter the value begins where the one before has ended");
        }
        if (isEmpty("endDelim")) warn(parameter, "endDelim", "without an end delimiter the value goes to the end of the command");
        const char* overlap = parameter.value("overlapDelim");
        if (overlap && std::string(overlap) != "true" && std::string(overlap) != "false") {
            warn(parameter, "overlapDelim", std::string("only the exact text \"false\" is false; '") + overlap + "' counts as true");
        }
    }

    // A value is kept one word by quotes of its own; within the command's quotes these would end them.
    void checkQuotes(const XmlElement& parameter, const char* name, const XmlAttribute* command) {
        const std::string quote = parameter.value("quote") ? parameter.value("quote") : "";
        if (!quote.empty() && quote != "true" && quote != "doublequote") {
            if (quote == "false" || quote == "none") return;
            warn(parameter, "quote", "only the exact texts \"true\" and \"doublequote\" put a value in quotes; with '" + quote +
                                         "' it is put in as shell text");
            return;
        }
        if (!name || !*name || !command) return;
        const std::string& text = command->value;
        for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
            if (!isInQuotes(text, at)) continue;
            tell(placeInValue(text_, *command, at), Problem::Warning,
                 std::string("'") + name + "' stands within quotes, which the quotes around its value end: the value gets shell "
                                           "text. Leave the command's quotes out");
            return;
        }
    }

    void checkReturnCode(const XmlElement& code, std::set<int>* codes) {
        if (const char* rc = code.value("rc"); rc && !codes->insert(std::atoi(rc)).second) {
            warn(code, "rc", std::string("return code ") + rc + " has a meaning already; the first one counts");
        }
        const char* type = code.value("type");
        std::vector<const char*> known;
        for (const char* const* each = returnCodeTypes; *each; ++each) {
            if (type && strcasecmp(type, *each) == 0) return;
            known.push_back(*each);
        }
        std::string folded = type ? type : "";
        ZSV1_ToUpper(folded.data());
        warn(code, "type", type ? std::string("'") + type + "' is no type of a return code; it counts as " +
                                      std::to_string(RC_UNKNOWN_TYPE) + didYouMean(folded, known)
                                : "without a type the status is " + std::to_string(RC_UNKNOWN_TYPE));
    }

    const std::string& text_;
    std::vector<Problem>* problems_;
    std::set<std::string> keys_;  // folded
};

}  // namespace

void checkTasks(const std::vector<const XmlElement*>& sections, const std::string& text, std::vector<Problem>* problems) {
    TaskCheck check(text, problems);
    for (const XmlElement* section : sections) {
        if (section->name == "task") check.check(*section);
    }
}
