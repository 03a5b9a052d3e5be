// Rows of a table: from the query to a sample, and from its row buffers to the answer's bytes. The bytes are
// made on the request thread, so that a large answer never holds up other connections.
#include <unordered_set>

#include "host/base/HostTrace.h"
#include "host/model/Json.h"
#include "host/server/Api.h"
#include "host/server/RowsQuery.h"

namespace almanac::host {
namespace {

// Whose rows are asked for.
struct ChosenNodes {
    std::vector<std::string> subnodes;  // each once, in the order asked for
    bool own = false;                   // the agent's own node too
    std::string unknown;                // the first name that nobody has
};

// All nodes if the query names none or "*". A value is one name if there is such a node, else names with commas between.
ChosenNodes chooseNodes(const Framework& framework, const std::vector<std::string>& given) {
    ChosenNodes chosen;
    const std::string own = framework.agent.originNode();
    std::unordered_set<std::string> seen;
    bool all = given.empty();
    const auto take = [&](const std::string& name) {
        if (name == "*") {
            all = true;
        } else if (name == own) {
            chosen.own = true;
        } else if (!framework.subnodes.knows(name)) {
            return false;
        } else if (seen.insert(name).second) {
            chosen.subnodes.push_back(name);
        }
        return true;
    };
    for (const std::string& value : given) {
        if (take(value)) continue;
        for (const std::string& name : splitList(value)) {
            if (!take(name) && chosen.unknown.empty()) chosen.unknown = name;
        }
        if (chosen.unknown.empty() && splitList(value).empty()) chosen.unknown = value;
    }
    if (!all || !chosen.unknown.empty()) return chosen;
    chosen.own = true;
    chosen.subnodes = framework.subnodes.names();
    return chosen;
}

// Whether the rows are the agent's own: their first column, the origin, names its node.
bool areOwnRows(const Batch& rows, const std::string& own) {
    if (rows.empty() || rows.layout()->columns.empty()) return false;
    const Column& origin = rows.layout()->columns.front();
    if (origin.kind != ColumnKind::Text) return false;
    std::string_view text(rows.row(0) + origin.offset, static_cast<std::size_t>(origin.length));
    text = text.substr(0, text.find('\0'));
    return text.substr(0, text.find_last_not_of(' ') + 1) == own;
}

ApiResponse answer(const RowsQuery& query, const TableEntry& entry, const SampleResult& result) {
    if (result.status != SampleStatus::Ok) return refusal(result.status, "request");
    ApiResponse response;
    response.contentType = mediaType(query.format);
    const Batch& rows = result.rows;
    const RowWriter writer(*rows.layout(), query.columns);
    if (query.format == RowFormat::Json) {
        JsonWriter json(&response.body);
        json.beginObject().key("table").value(entry.name()).key("application").value(entry.application());
        json.key("count").value(rows.count()).key("truncated").value(result.truncated);
        json.key("duration_s").value(std::chrono::duration<double>(result.duration).count());
        json.key("rows");
        writer.appendRows(&response.body, rows, query.format);
        response.body += "}\n";
    } else {
        writer.appendRows(&response.body, rows, query.format);
        response.headers.emplace_back("Almanac-Rows", std::to_string(rows.count()));
        if (result.truncated) response.headers.emplace_back("Almanac-Truncated", "true");
    }
    return response;
}

}  // namespace

std::optional<ApiDeadline> Api::rows(Call& call, const std::string& name) {
    HOST_TRACE_FUNCTION();
    const auto entry = tableOrProblem(call, name);
    if (!entry) return std::nullopt;
    const auto layout = entry->layout();
    if (!layout) return call.respond(refusal(SampleStatus::NotReady, "request")), std::nullopt;
    ApiResponse wrong;
    std::optional<RowsQuery> query = parseRowsQuery(call.target, call.request.accept, *layout, &wrong);
    if (!query) return call.respond(std::move(wrong)), std::nullopt;
    const ChosenNodes nodes = chooseNodes(framework_, query->nodes);
    if (!nodes.unknown.empty())
        return call.respond(problem(404, "no managed system has the name '" + nodes.unknown + "'")), std::nullopt;
    // A table without subnodes answers whatever nodes are named.
    const std::string foreign = nodes.own ? "" : framework_.agent.originNode();

    SampleQuery sample;
    sample.table = entry;
    sample.filter = query->filter;
    sample.subnodes = nodes.subnodes;
    sample.limit = query->limit;
    std::shared_ptr<SampleTicket> ticket;
    auto done = [respond = call.respond, query = *query, entry, foreign](SampleResult&& result) {
        if (result.status == SampleStatus::Abandoned) return;
        ApiResponse response;
        try {
            response = !foreign.empty() && areOwnRows(result.rows, foreign)
                           ? problem(404, "table '" + entry->name() + "' has rows of '" + foreign +
                                              "' alone, not of other managed systems")
                           : answer(query, *entry, result);
        } catch (...) {
            response = problem(500, "the answer needs more memory than there is");
        }
        result.rows = Batch();  // the answer may wait long in its connection
        respond(std::move(response));
    };
    const SampleStatus status = framework_.broker.sample(sample, std::move(done), &ticket);
    if (status != SampleStatus::Ok) return call.respond(refusal(status, "request")), std::nullopt;
    host_trace_detail("table %s: rows asked for", entry->name().c_str());
    return ApiDeadline{query->deadline, [entry, ticket] {
                           ticket->abandon();
                           entry->countTimeout();
                           return problem(504,
                                          "table " + entry->name() + " did not answer within the deadline");
                       }};
}

}  // namespace almanac::host
