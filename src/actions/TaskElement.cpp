#include "actions/TaskElement.h"

#include <algorithm>
#include <cstring>

#include "foundation/Corrections.h"
#include "foundation/Trace.h"

namespace {

constexpr std::string_view kQuote = "\"";
constexpr std::string_view kEmptyPair = "\"\"";
constexpr std::string_view kNothing = "\"\"\"\"";  // what an empty pair becomes when it is quoted once more

std::string textOf(const char* text) { return text ? text : ""; }

// Where a parameter's value stands in a request, and where its end delimiter ends.
struct Place {
    std::size_t begin, end, behind;
};

// Nothing if there is no start delimiter from that byte on. A value without its end delimiter goes to the end.
std::optional<Place> findValue(std::string_view request, const TaskParameter& parameter, std::size_t from) {
    TRACE_MESSAGES();
    const std::string_view start = parameter.getStartDelim();
    const std::string_view stop = parameter.getEndDelim();
    const std::size_t found = request.find(start, from);
    if (found == std::string_view::npos) return std::nullopt;
    const std::size_t begin = found + start.size();
    std::size_t end = std::string_view::npos;
    if (start.size() == 1 && stop.size() == 1 && start != stop) {
        int depth = 1;
        for (std::size_t at = begin; at < request.size() && end == std::string_view::npos; ++at) {
            if (request[at] == start[0]) ++depth;
            if (request[at] == stop[0] && --depth == 0) end = at;
        }
    } else if (!stop.empty()) {
        end = request.find(stop, begin);
    }
    if (end != std::string_view::npos) return Place{begin, end, end + stop.size()};
    if (!stop.empty()) {
        trace_detail("Task parameter delimiter %s not found in '%.*s'", parameter.getEndDelim(),
                     static_cast<int>(request.size()), request.data());
    }
    return Place{begin, request.size(), request.size()};
}

}  // namespace

TaskParameter::TaskParameter(const char* name, const char* defaultValue, const char* quote, const char* startDelim,
                             const char* endDelim, const char* overlapDelim)
    : name_(textOf(name)),
      startDelim_(textOf(startDelim)),
      endDelim_(textOf(endDelim)),
      overlaps_(!overlapDelim || std::strcmp(overlapDelim, "false") != 0),
      quote_(textOf(quote)),
      default_(textOf(defaultValue)) {
    if (isQuoted()) {
        // Kept: a default is put in quotes as it stands, and "<EMPTY_STRING>" is no special text in them.
        default_ = std::string(kQuote).append(default_).append(kQuote);
    } else if (default_ == "<EMPTY_STRING>") {
        default_.clear();
    }
}

bool TaskParameter::isQuoted() const { return quote_.empty() || quote_ == "true" || quote_ == "doublequote"; }

std::string TaskParameter::quoted(std::string_view text) const {
    TRACE_MESSAGES();
    if (!isQuoted()) return std::string(text);
    if (quote_ != "doublequote" && text == kEmptyPair) return std::string(text);
    trace_detail("Param value %.*s will be quoted.", static_cast<int>(text.size()), text.data());
    std::string value(kQuote);
    value.reserve(text.size() + 2);
    const bool literal = correctionIsOn("task-quoting");
    for (const char c : text) {
        // A dollar stands in single quotes of its own, so that neither the shell nor a later substitution sees "${".
        if (literal && c == '$') {
            value += "\"'$'\"";
            continue;
        }
        if (c == '"' || c == '\\' || (literal && c == '`')) value += '\\';
        value += c;
    }
    return value.append(kQuote);
}

std::string_view TaskParameter::textToPut(const std::string* value) const {
    const std::string_view put = value ? *value : default_;
    return put == kNothing ? std::string_view() : put;
}

bool TaskParameter::addParameterToCommandBuffer(std::string* buffer, const std::string* value) const {
    TRACE_MESSAGES();
    if (name_.empty()) return true;
    const std::string_view put = textToPut(value);
    std::string expanded;
    std::size_t from = 0;
    for (std::size_t at = buffer->find(name_); at != std::string::npos; at = buffer->find(name_, from)) {
        expanded.append(*buffer, from, at - from).append(put);
        from = at + name_.size();
        if (expanded.size() + buffer->size() - from > kLongestCommand) {
            trace_error("With parameter '%s' the command gets longer than %zu bytes", name_.c_str(), kLongestCommand);
            return false;
        }
    }
    if (from == 0) return true;
    *buffer = std::move(expanded.append(*buffer, from));
    return true;
}

TaskElement::TaskElement(const char* key, const char* command, const char* friendlyName)
    : name_(textOf(key)), command_(textOf(command)), friendlyName_(friendlyName ? friendlyName : textOf(key)) {}

TaskElement::~TaskElement() = default;

void TaskElement::addParameter(std::unique_ptr<TaskParameter> parameter) { parameters_.push_back(std::move(parameter)); }

void TaskElement::addReturnCode(std::unique_ptr<ReturnCodeListElement> code) {
    if (!codes_.empty()) {
        codes_.back()->setNextElement(code.get());
        code->setPrevElement(codes_.back().get());
    }
    codes_.push_back(std::move(code));
}

ListCursor TaskElement::getReturnCodeListCursor() const {
    return ListCursor(codes_.empty() ? nullptr : codes_.front().get());
}

std::optional<std::vector<std::string_view>> TaskElement::valuesIn(std::string_view request) const {
    std::vector<std::string_view> values;
    Place last{0, 0, 0};
    for (const auto& parameter : parameters_) {
        const std::size_t from = parameter->canOverlapPreviousDelim() ? last.end : last.behind;
        const std::optional<Place> place = findValue(request, *parameter, from);
        if (!place) return std::nullopt;
        last = *place;
        values.push_back(request.substr(last.begin, last.end - last.begin));
    }
    return values;
}

std::optional<std::string> TaskElement::getTaskCommand(std::string_view request) const {
    TRACE_FUNCTION();
    const auto texts = valuesIn(request);
    if (!texts) {
        trace_error("MALFORMED TASK COMMAND OF '%.*s' expected more parameters.", static_cast<int>(request.size()), request.data());
        return std::nullopt;
    }
    std::vector<std::string> quoted(texts->size());
    std::vector<const std::string*> values(texts->size());
    for (std::size_t i = 0; i < texts->size(); ++i) {
        if ((*texts)[i].empty()) continue;  // the default
        quoted[i] = parameters_[i]->quoted((*texts)[i]);
        values[i] = &quoted[i];
        trace_detail("TASK PARAMETER '%s' has a value of: %s.", parameters_[i]->getName(), quoted[i].c_str());
    }
    if (correctionIsOn("task-quoting")) return expandOnce(values);
    std::string command = command_;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!parameters_[i]->addParameterToCommandBuffer(&command, values[i])) return std::nullopt;
    }
    return command;
}

std::optional<std::string> TaskElement::expandOnce(const std::vector<const std::string*>& values) const {
    TRACE_MESSAGES();
    std::string expanded;
    const std::string_view command = command_;
    for (std::size_t at = 0; at < command.size();) {
        std::size_t longest = 0;
        std::string_view put = command.substr(at, 1);
        for (std::size_t i = 0; i < values.size(); ++i) {
            const std::string_view name = parameters_[i]->getName();
            if (name.size() <= longest || !command.substr(at).starts_with(name)) continue;
            longest = name.size();
            put = parameters_[i]->textToPut(values[i]);
        }
        if (expanded.size() + put.size() > TaskParameter::kLongestCommand) {
            trace_error("With its parameters the command of '%s' gets longer than %zu bytes", name_.c_str(),
                        TaskParameter::kLongestCommand);
            return std::nullopt;
        }
        expanded += put;
        at += std::max<std::size_t>(longest, 1);
    }
    return expanded;
}

std::optional<std::string> TaskElement::composeRequest(const std::vector<const char*>& values, std::string* why) const {
    TRACE_FUNCTION();
    std::string request = name_;
    std::string_view before;  // the end delimiter that stands last
    const auto valueOf = [&](std::size_t i) { return i < values.size() && values[i] ? values[i] : ""; };
    for (std::size_t i = 0; i < parameters_.size(); ++i) {
        const TaskParameter& p = *parameters_[i];
        const std::string_view start = p.getStartDelim();
        if (i == 0 && !start.starts_with(' ')) request += ' ';
        // An end delimiter that may be the next start delimiter is not written twice.
        if (before.empty() || before != start || !p.canOverlapPreviousDelim()) request += start;
        request.append(valueOf(i)).append(p.getEndDelim());
        before = p.getEndDelim();
    }
    const auto read = valuesIn(request);
    for (std::size_t i = 0; i < parameters_.size(); ++i) {
        if (read && (*read)[i] == valueOf(i)) continue;
        const TaskParameter& p = *parameters_[i];
        *why = std::string("'") + name_ + "' cannot take this value of " + p.getName() + " between its delimiters '" +
               p.getStartDelim() + "' and '" + p.getEndDelim() + "'";
        return std::nullopt;
    }
    return request;
}
