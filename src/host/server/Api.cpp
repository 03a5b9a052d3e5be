#include "host/server/Api.h"

#include <pwd.h>
#include <unistd.h>

#include "host/framework/AgentCall.h"
#include "host/model/Json.h"
#include "host/model/RowWriter.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr char kRead[] = "GET, HEAD, OPTIONS";
constexpr char kReadPut[] = "GET, HEAD, PUT, OPTIONS";
constexpr char kReadPost[] = "GET, HEAD, POST, OPTIONS";
constexpr char kAll[] = "GET, HEAD, POST, PUT, OPTIONS";
constexpr std::size_t kMaxEventsAnswered = 1000;

double seconds(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }

std::int64_t wallMilliseconds() {
    timespec now{};
    ZSV1_GetTime(&now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

ApiResponse jsonResponse(std::string body) {
    ApiResponse response;
    response.contentType = "application/json";
    response.body = std::move(body);
    response.body += '\n';
    return response;
}

// The name of a user, or its number.
std::string userName(long id) {
    char buffer[4096];
    passwd entry{};
    passwd* found = nullptr;
    if (id >= 0 && getpwuid_r(static_cast<uid_t>(id), &entry, buffer, sizeof buffer, &found) == 0 && found)
        return found->pw_name;
    return id >= 0 ? std::to_string(id) : "unknown";
}

// True if `path` fits the segments of `route`; `name` gets what stands at "{}".
bool matches(std::string_view route, const std::vector<std::string>& path, std::string* name) {
    route.remove_prefix(1);
    for (std::size_t i = 0; i < path.size(); ++i) {
        const std::size_t slash = route.find('/');
        const std::string_view segment = route.substr(0, slash);
        const bool last = slash == std::string_view::npos;
        if (segment == "{}" && !path[i].empty())
            *name = path[i];
        else if (segment != path[i])
            return false;
        if (last != (i + 1 == path.size())) return false;
        if (!last) route.remove_prefix(slash + 1);
    }
    return !path.empty();
}

bool changesState(const std::string& method) {
    return method != "GET" && method != "HEAD" && method != "OPTIONS";
}

void writeColumn(JsonWriter& json, const Column& column) {
    json.beginObject().key("name").value(column.name).key("type").value(columnTypeName(column.kind));
    json.key("length").value(column.length).key("offset").value(column.offset);
    json.key("hint");
    if (column.hint.empty())
        json.null();
    else
        json.value(column.hint);
    if (column.decimals > 0) json.key("decimals").value(column.decimals);
    json.endObject();
}

void writeStatistics(JsonWriter& json, const TableStatistics& s) {
    json.key("requests").value(static_cast<long long>(s.requests));
    json.key("answered").value(static_cast<long long>(s.answered));
    json.key("failed").value(static_cast<long long>(s.failed));
    json.key("timeouts").value(static_cast<long long>(s.timeouts));
    json.key("refused").value(static_cast<long long>(s.refused));
    json.key("running").value(s.running);
    json.key("last_start_ms");
    if (s.lastStart == 0)
        json.null();
    else
        json.value(static_cast<long long>(s.lastStart));
    json.key("last_duration_s").value(seconds(s.lastDuration));
    json.key("last_rows").value(static_cast<long long>(s.lastRows));
}

// Wrong if the query has a parameter outside `known`.
std::optional<ApiResponse> strayParameter(const HttpTarget& target,
                                          std::initializer_list<std::string_view> known) {
    for (const auto& [name, value] : target.query) {
        bool found = false;
        for (const std::string_view one : known) found = found || one == name;
        if (!found) return problem(400, "no parameter has the name '" + name + "' here");
    }
    return std::nullopt;
}

}  // namespace

ApiResponse refusal(SampleStatus status, const char* what) {
    switch (status) {
        case SampleStatus::Busy: {
            ApiResponse busy = problem(503, std::string("too many others wait before this ") + what + "; try again");
            busy.headers.emplace_back("Retry-After", "1");
            return busy;
        }
        case SampleStatus::NotReady:
            return problem(503, std::string("the agent is not ready for this ") + what);
        case SampleStatus::Stopping:
        case SampleStatus::Abandoned:
            return problem(503, "the agent shuts down");
        default:
            return problem(500, std::string("the agent failed this ") + what);
    }
}

const Api::Route Api::kRoutes[] = {
    {"/api/v1/agent", kRead, &Api::agent},     {"/api/v1/tables", kRead, &Api::tables},
    {"/api/v1/tables/{}", kRead, &Api::table}, {"/api/v1/tables/{}/rows", kRead, &Api::rows},
    {"/api/v1/status", kRead, &Api::status},   {"/api/v1/nodes", kRead, &Api::nodes},
    {"/api/v1/events", kRead, &Api::events},   {"/api/v1/trace", kReadPut, &Api::trace},
    {"/healthz", kRead, &Api::healthz},        {"/readyz", kRead, &Api::readyz},
    {"/api/v1/actions", kReadPost, &Api::actions, Right::Actions},
};

Api::Api(Framework& framework, std::string dataDirectory)
    : framework_(framework),
      dataDirectory_(std::move(dataDirectory)),
      actionLog_(std::make_shared<ActionLog>(dataDirectory_ + "/actions.log")),
      started_(std::chrono::steady_clock::now()),
      startedWall_(wallMilliseconds()) {}

std::optional<ApiResponse> Api::gate(const ApiRequest& request) const {
    if (request.local) return std::nullopt;
    if (!isLoopbackAuthority(request.host))
        return problem(421, "this address answers to the names localhost, 127.0.0.1 and [::1] only");
    if (!changesState(request.method)) return std::nullopt;
    const bool foreign = !request.origin.empty() && request.origin != "http://" + request.host;
    if (foreign || request.fetchSite == "cross-site" || request.fetchSite == "same-site")
        return problem(403, "another origin may not change anything here");
    return std::nullopt;
}

std::optional<ApiResponse> Api::authorise(const ApiRequest& request, Right right, Caller* caller) const {
    if (request.local) {
        caller->name = userName(request.peer);
        const bool owner = request.peer == static_cast<long>(geteuid()) || request.peer == 0;
        if (owner || right != Right::Actions) return std::nullopt;
        return problem(403, "actions are for the owner of the agent's socket; you are " + caller->name);
    }
    constexpr std::string_view kScheme = "Bearer ";
    const std::string& given = request.authorization;
    std::optional<TokenHolder> holder;
    if (given.size() > kScheme.size() && equalsNoCase(std::string_view(given).substr(0, kScheme.size()), kScheme))
        holder = tokenHolder(dataDirectory_, given.substr(kScheme.size()));
    if (!holder) {
        ApiResponse refused = problem(401, std::string(right == Right::Actions ? "actions need" : "changing anything needs") +
                                               " 'Authorization: Bearer' with a token of the data directory");
        refused.headers.emplace_back("WWW-Authenticate", "Bearer");
        return refused;
    }
    caller->name = holder->name.empty() ? "token" : "token " + holder->name;
    caller->commands = holder->commands;
    if (right == Right::Actions ? holder->actions : holder->trace) return std::nullopt;
    return problem(403, std::string("this token has no right '") + (right == Right::Actions ? "actions'" : "trace'"));
}

std::optional<ApiDeadline> Api::handle(const ApiRequest& request, Respond respond) {
    std::string error;
    const std::optional<HttpTarget> target = parseTarget(request.target, &error);
    if (!target) return respond(problem(400, error)), std::nullopt;
    if (std::optional<ApiResponse> refused = gate(request)) return respond(std::move(*refused)), std::nullopt;

    const auto options = [&respond](const char* allow) {
        ApiResponse response;
        response.status = 204;
        response.headers.emplace_back("Allow", allow);
        respond(std::move(response));
        return std::nullopt;
    };
    if (target->asterisk && request.method == "OPTIONS") return options(kAll);
    for (const Route& route : kRoutes) {
        std::string name;
        if (!matches(route.path, target->path, &name)) continue;
        if (request.method == "OPTIONS") return options(route.allow);
        const bool read = request.method == "GET" || request.method == "HEAD";
        const bool changes = (request.method == "PUT" && route.allow == kReadPut) ||
                             (request.method == "POST" && route.allow == kReadPost);
        if (!read && !changes) {
            ApiResponse wrong = problem(405, request.method + " has no meaning here");
            wrong.headers.emplace_back("Allow", route.allow);
            return respond(std::move(wrong)), std::nullopt;
        }
        Call call{request, *target, respond, {}};
        if (changes || route.right == Right::Actions) {
            if (auto refused = authorise(request, route.right, &call.caller)) {
                if (route.right == Right::Actions) actionLog_->refused(call.caller.name, "no right");
                return respond(std::move(*refused)), std::nullopt;
            }
        }
        return (this->*route.handler)(call, name);
    }
    respond(problem(404, "there is nothing at this path"));
    return std::nullopt;
}

std::shared_ptr<TableEntry> Api::tableOrProblem(Call& call, const std::string& name) const {
    std::shared_ptr<TableEntry> entry = framework_.catalog.find(name);
    if (!framework_.broker.ready()) {
        call.respond(problem(503, "the tables are being loaded"));
        return nullptr;
    }
    if (entry) return entry;
    const std::string near = framework_.catalog.nearest(name);
    call.respond(problem(404, "no table has the name '" + name + "'" +
                                  (near.empty() ? "" : ", did you mean '" + near + "'?")));
    return nullptr;
}

std::optional<ApiDeadline> Api::agent(Call& call, const std::string&) {
    if (auto wrong = strayParameter(call.target, {})) return call.respond(std::move(*wrong)), std::nullopt;
    const AgentInfo::Values agent = framework_.agent.values();
    const auto tables = framework_.catalog.list();
    std::string body;
    JsonWriter json(&body);
    json.beginObject().key("name").value(tables.empty() ? agent.product : tables.front()->application());
    json.key("node_type").value(agent.nodeType).key("version").value(agent.version);
    json.key("affinities").beginArray();
    for (const std::string& affinity : agent.affinities) json.value(affinity);
    json.endArray().key("instance").value(agent.instance);
    json.key("origin_node").value(framework_.agent.originNode());
    json.key("pid").value(static_cast<long long>(getpid()));
    json.key("uptime_s").value(seconds(std::chrono::steady_clock::now() - started_));
    json.key("tables").value(tables.size()).key("subnodes").value(framework_.subnodes.size());
    json.key("ready").value(framework_.broker.ready()).endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::tables(Call& call, const std::string&) {
    if (auto wrong = strayParameter(call.target, {})) return call.respond(std::move(*wrong)), std::nullopt;
    std::string body;
    JsonWriter json(&body);
    json.beginObject().key("tables").beginArray();
    for (const auto& entry : framework_.catalog.list()) {
        const auto layout = entry->layout();
        const TableStatistics statistics = entry->statistics();
        json.beginObject().key("name").value(entry->name()).key("application").value(entry->application());
        json.key("columns").value(layout ? layout->columns.size() : std::size_t{0});
        json.key("last_rows");
        if (statistics.answered == 0)
            json.null().key("last_duration_s").null();
        else
            json.value(static_cast<long long>(statistics.lastRows))
                .key("last_duration_s")
                .value(seconds(statistics.lastDuration));
        json.endObject();
    }
    json.endArray().endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::table(Call& call, const std::string& name) {
    if (auto wrong = strayParameter(call.target, {})) return call.respond(std::move(*wrong)), std::nullopt;
    const auto entry = tableOrProblem(call, name);
    if (!entry) return std::nullopt;
    const auto layout = entry->layout();
    if (!layout) return call.respond(problem(503, "the columns of this table are not known")), std::nullopt;
    std::string body;
    JsonWriter json(&body);
    json.beginObject().key("name").value(entry->name()).key("application").value(entry->application());
    json.key("row_size").value(layout->rowSize).key("columns").beginArray();
    for (const Column& column : layout->columns) writeColumn(json, column);
    json.endArray().endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::status(Call& call, const std::string&) {
    if (auto wrong = strayParameter(call.target, {})) return call.respond(std::move(*wrong)), std::nullopt;
    std::string body;
    JsonWriter json(&body);
    json.beginObject().key("ready").value(framework_.broker.ready());
    json.key("shutdown").value(framework_.lifecycle.asked());
    json.key("uptime_s").value(seconds(std::chrono::steady_clock::now() - started_));
    json.key("requests_inside_agent").value(AgentCall::running());
    json.key("request_threads").value(framework_.broker.pool().threads());
    json.key("open_requests").value(framework_.broker.openRequests());
    json.key("tables").beginArray();
    for (const auto& entry : framework_.catalog.list()) {
        json.beginObject().key("name").value(entry->name());
        writeStatistics(json, entry->statistics());
        json.endObject();
    }
    json.endArray().endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

// The agent's own managed system first, then the subnodes by name.
std::optional<ApiDeadline> Api::nodes(Call& call, const std::string&) {
    if (auto wrong = strayParameter(call.target, {})) return call.respond(std::move(*wrong)), std::nullopt;
    const AgentInfo::Values agent = framework_.agent.values();
    const auto tables = framework_.catalog.list();
    std::string body;
    JsonWriter json(&body);
    const auto node = [&json](std::string_view name, std::string_view type, std::string_view application) {
        json.beginObject().key("name").value(name).key("type").value(type).key("application").value(application);
    };
    json.beginObject().key("nodes").beginArray();
    node(framework_.agent.originNode(), agent.nodeType, tables.empty() ? agent.product : tables.front()->application());
    json.key("version").value(agent.version);
    json.key("affinity").value(agent.affinities.empty() ? std::string() : agent.affinities.front());
    json.key("subnode").value(false).key("since_ms").value(static_cast<long long>(startedWall_));
    json.key("state").value("registered").endObject();
    for (const Subnode& subnode : framework_.subnodes.list()) {
        node(subnode.name, subnodeTypeOf(subnode.name), subnode.application);
        json.key("version").value(subnode.version).key("affinity").value(subnode.affinity);
        json.key("subnode").value(true).key("since_ms").value(static_cast<long long>(subnode.since));
        json.key("state").value(subnode.pending ? "pending" : "registered").endObject();
    }
    json.endArray().endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::events(Call& call, const std::string&) {
    std::uint64_t after = 0;
    std::string table;
    for (const auto& [name, value] : call.target.query) {
        if (name == "table") {
            table = value;
        } else if (name != "after") {
            return call.respond(problem(400, "there are the parameters table and after")), std::nullopt;
        } else if (value.empty() || value.size() > 18 ||
                   value.find_first_not_of("0123456789") != std::string::npos) {
            return call.respond(problem(400, "after: '" + value + "' is no number of an event")),
                   std::nullopt;
        } else {
            after = std::stoull(value);
        }
    }
    if (!table.empty()) {
        const auto entry = tableOrProblem(call, table);
        if (!entry) return std::nullopt;
        if (!framework_.events.follow(framework_.broker, entry))
            return call.respond(problem(503, "the table cannot be followed now")), std::nullopt;
        table = entry->name();
    }
    std::string body;
    JsonWriter json(&body);
    json.beginObject().key("last").value(static_cast<long long>(framework_.events.lastNumber()));
    json.key("events").beginArray();
    for (const auto& event : framework_.events.since(after, kMaxEventsAnswered)) {
        if (!table.empty() && event->table != table) continue;
        json.beginObject().key("number").value(static_cast<long long>(event->number));
        json.key("time_ms").value(static_cast<long long>(event->time)).key("table").value(event->table);
        json.key("row");
        RowWriter(*event->row.layout(), {}).appendObject(&body, event->row.row(0));
        json.endObject();
    }
    json.endArray().endObject();
    call.respond(jsonResponse(std::move(body)));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::healthz(Call& call, const std::string&) {
    ApiResponse response;
    response.contentType = "text/plain; charset=utf-8";
    response.body = "ok\n";
    call.respond(std::move(response));
    return std::nullopt;
}

std::optional<ApiDeadline> Api::readyz(Call& call, const std::string&) {
    if (framework_.lifecycle.asked()) return call.respond(problem(503, "the agent shuts down")), std::nullopt;
    if (!framework_.broker.ready())
        return call.respond(problem(503, "the tables are being loaded")), std::nullopt;
    ApiResponse response;
    response.contentType = "text/plain; charset=utf-8";
    response.body = "ready\n";
    call.respond(std::move(response));
    return std::nullopt;
}

}  // namespace almanac::host
