// Actions: the list of those that are declared, and the way to run one. The agent is called on a request thread; here
// only what was asked is read, checked and logged.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/base/HostConfiguration.h"
#include "host/base/HostTrace.h"
#include "host/base/Paths.h"
#include "host/model/Json.h"
#include "host/model/RowWriter.h"
#include "host/server/Api.h"
#include "host/server/RowsQuery.h"

namespace almanac::host {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kDefaultDeadline{60000};
constexpr int kDeepest = 8;  // objects and lists within each other in a body

struct Wrong {
    int status;
    std::string detail;
};

std::string didYouMean(const std::string& near) { return near.empty() ? "" : ", did you mean '" + near + "'?"; }

std::string whyNoFreeText() {
    return "free command text is off: only declared actions run here. 'free_text = true' in the table [actions] of " +
           hostConfigurationFile() + " allows it from the agent's next start on";
}

// A value as text: a text, a number or a boolean. Throws Wrong.
std::string valueText(const json& value, const std::string& name) {
    std::string text;
    if (value.is_string()) {
        text = value.get<std::string>();
    } else if (value.is_number() || value.is_boolean()) {
        text = value.dump();
    } else {
        throw Wrong{400, name + ": a value is a text, a number or a boolean"};
    }
    if (text.find('\0') != std::string::npos) throw Wrong{400, name + ": a value holds no NUL"};
    return text;
}

// The values in the order of the declaration, by name or by place. Throws Wrong.
std::vector<std::optional<std::string>> readValues(const json& given, const DeclaredCommand& command) {
    const auto& declared = command.parameters;
    std::vector<std::optional<std::string>> values(declared.size());
    if (given.is_array()) {
        if (given.size() > declared.size()) {
            throw Wrong{400, "'" + command.name + "' takes " + std::to_string(declared.size()) + " parameters, not " +
                                 std::to_string(given.size())};
        }
        for (std::size_t i = 0; i < given.size(); ++i) {
            if (!given[i].is_null()) values[i] = valueText(given[i], "parameters");
        }
        return values;
    }
    if (!given.is_object()) throw Wrong{400, "parameters: an object of names and values, or a list of values"};
    for (const auto& [name, value] : given.items()) {
        std::vector<std::string_view> names;
        std::size_t index = 0;
        for (const auto& p : declared) names.push_back(p.name);
        while (index < names.size() && names[index] != name) ++index;
        if (index == names.size()) {
            throw Wrong{400, "'" + command.name + "' has no parameter '" + name + "'" + didYouMean(nearestName(name, names))};
        }
        if (!value.is_null()) values[index] = valueText(value, name);
    }
    return values;
}

// What a body asks for, but for who asks. Throws Wrong.
struct Asked {
    ActionQuery query;
    std::chrono::milliseconds deadline = kDefaultDeadline;
};

std::string textOf(const json& body, const char* member) {
    if (!body.contains(member)) return "";
    if (!body[member].is_string()) throw Wrong{400, std::string(member) + ": a text"};
    return valueText(body[member], member);
}

void readCommand(const json& body, const CommandCatalog& commands, ActionQuery* query) {
    if (body.contains("task") == body.contains("command")) throw Wrong{400, "one of 'task' and 'command' is needed"};
    if (body.contains("command")) {
        query->command = textOf(body, "command");
        if (body.contains("parameters")) throw Wrong{400, "'parameters' go with a 'task'"};
        if (query->command.find_first_not_of(' ') == std::string::npos) throw Wrong{400, "command: there is nothing to run"};
        return;
    }
    const std::string name = textOf(body, "task");
    const std::optional<DeclaredCommand> command = commands.find(name);
    if (!command) throw Wrong{404, "no action has the name '" + name + "'" + didYouMean(commands.nearest(name))};
    const json given = body.value("parameters", json::object());
    const auto values = readValues(given, *command);
    if (command->form == HBX_COMMAND_WORD) {
        query->task = command->name;
        query->values = values;
    } else {
        query->command = command->name;
    }
}

Asked readBody(const std::string& text, const Framework& framework) {
    // Nothing that is asked for is deep, and a copy of a value goes as deep into the stack as the value does.
    bool tooDeep = false;
    const auto isShallow = [&tooDeep](int depth, json::parse_event_t, const json&) {
        tooDeep = tooDeep || depth > kDeepest;
        return depth <= kDeepest;
    };
    const json body = json::parse(text, isShallow, false);
    if (tooDeep) throw Wrong{400, "the body is deeper than anything that can be asked for"};
    if (!body.is_object()) {
        throw Wrong{400, "the body must be an object such as {\"task\": \"name\", \"parameters\": {\"name\": \"value\"}}"};
    }
    for (const auto& [name, value] : body.items()) {
        constexpr std::string_view kKnown[] = {"task", "command", "parameters", "node", "deadline"};
        if (std::find(std::begin(kKnown), std::end(kKnown), name) == std::end(kKnown)) {
            throw Wrong{400, "no member has the name '" + name + "'; there are task, parameters, command, node and deadline"};
        }
    }
    Asked asked;
    readCommand(body, framework.commands, &asked.query);
    const std::string node = textOf(body, "node");
    if (!node.empty() && node != framework.agent.originNode()) {
        if (!framework.subnodes.knows(node)) throw Wrong{404, "no managed system has the name '" + node + "'"};
        asked.query.subnode = node;
    }
    const std::string deadline = body.contains("deadline") ? valueText(body["deadline"], "deadline") : "";
    if (!deadline.empty() && !readDeadline(deadline, &asked.deadline))
        throw Wrong{400, "deadline: '" + deadline + "' is no time from 1ms to 3600s"};
    return asked;
}

ApiResponse answerOf(const ActionResult& result, const std::string& node) {
    if (!result.refusal.empty()) return problem(400, result.refusal);
    if (result.status != SampleStatus::Ok) return refusal(result.status, "action");
    ApiResponse response;
    response.contentType = "application/json";
    JsonWriter json(&response.body);
    json.beginObject().key("node").value(node).key("command").value(result.command);
    json.key("return_code").value(result.returnCode).key("message").value(result.message);
    json.key("duration_s").value(std::chrono::duration<double>(result.duration).count());
    json.key("truncated").value(result.truncated).key("rows");
    if (result.rows.layout()) {
        RowWriter(*result.rows.layout(), {}).appendRows(&response.body, result.rows, RowFormat::Json);
    } else {
        response.body += "[]";
    }
    response.body += "}\n";
    return response;
}

}  // namespace

std::optional<ApiDeadline> Api::actions(Call& call, const std::string&) {
    if (!call.target.query.empty()) return call.respond(problem(400, "there are no parameters here")), std::nullopt;
    if (call.request.method == "POST") return startAction(call);
    ApiResponse response;
    response.contentType = "application/json";
    JsonWriter json(&response.body);
    const bool freeText = hostConfigurationAllowsFreeText();
    json.beginObject().key("free_text").value(freeText);
    if (!freeText) json.key("free_text_why").value(whyNoFreeText());
    json.key("actions").beginArray();
    for (const DeclaredCommand& command : framework_.commands.list()) {
        json.beginObject().key("name").value(command.name).key("title").value(command.title);
        json.key("built_in").value(command.form != HBX_COMMAND_WORD).key("parameters").beginArray();
        for (const auto& p : command.parameters)
            json.beginObject().key("name").value(p.name).key("default").value(p.defaultValue).endObject();
        json.endArray().endObject();
    }
    json.endArray().endObject();
    response.body += '\n';
    call.respond(std::move(response));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::startAction(Call& call) {
    HOST_TRACE_FUNCTION();
    Asked asked;
    try {
        asked = readBody(call.request.body, framework_);
        const auto form = asked.query.task.empty() ? framework_.commands.formOf(asked.query.command) : HBX_COMMAND_WORD;
        if (!form && !hostConfigurationAllowsFreeText()) throw Wrong{403, whyNoFreeText()};
        if (form != HBX_COMMAND_WORD && !call.caller.commands) throw Wrong{403, "this token has no right 'commands': it runs declared tasks"};
    } catch (const Wrong& wrong) {
        if (wrong.status == 403) actionLog_->refused(call.caller.name, wrong.detail, asked.query.command);
        return call.respond(problem(wrong.status, wrong.detail)), std::nullopt;
    }
    ActionQuery& query = asked.query;
    query.user = call.caller.name;
    // A command for a subnode names its owner as a situation does; given by hand, that is whoever asks.
    if (!query.subnode.empty()) query.situation = call.caller.name;
    const long long number = actionLog_->asked(query);
    const std::string node = query.subnode.empty() ? framework_.agent.originNode() : query.subnode;
    auto done = [respond = call.respond, log = actionLog_, number, node](ActionResult&& result) {
        ApiResponse response;
        try {
            log->finished(number, result);
            response = answerOf(result, node);
        } catch (...) {
            response = problem(500, "the answer needs more memory than there is");
        }
        result.rows = Batch();  // the answer may wait long in its connection
        respond(std::move(response));
    };
    const SampleStatus status = framework_.actions.run(query, std::move(done));
    if (status != SampleStatus::Ok) {
        ActionResult never;
        never.status = status;
        actionLog_->finished(number, never);
        return call.respond(refusal(status, "action")), std::nullopt;
    }
    return ApiDeadline{asked.deadline, [] {
                           return problem(504, "the action has not ended within the deadline; it goes on, and its outcome "
                                               "will stand in the log and the table of actions");
                       }};
}

}  // namespace almanac::host
