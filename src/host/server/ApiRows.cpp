// Rows of a table: from the query to a sample, and from its row buffers to the answer's bytes. The bytes are
// made on the request thread, so that a large answer never holds up other connections.
#include "host/base/HostTrace.h"
#include "host/model/Json.h"
#include "host/server/Api.h"
#include "host/server/RowsQuery.h"

namespace almanac::host {
namespace {

// The subnodes that the query names; all that are known if it names none or "*". False if one is not known.
bool chooseSubnodes(const SubnodeDirectory& directory, std::vector<std::string>* names,
                    std::string* unknown) {
    bool all = names->empty();
    for (const std::string& name : *names) {
        all = all || name == "*";
        if (name != "*" && !directory.knows(name)) {
            *unknown = name;
            return false;
        }
    }
    if (!all) return true;
    names->clear();
    for (const Subnode& subnode : directory.list()) names->push_back(subnode.name);
    return true;
}

ApiResponse refusal(SampleStatus status) {
    ApiResponse response;
    switch (status) {
        case SampleStatus::Busy:
            response = problem(503, "too many requests wait for this table or for all; try again");
            response.headers.emplace_back("Retry-After", "1");
            return response;
        case SampleStatus::NotReady:
            return problem(503, "the columns of this table are not known");
        case SampleStatus::Stopping:
        case SampleStatus::Abandoned:
            return problem(503, "the agent shuts down");
        default:
            return problem(500, "the agent failed this request");
    }
}

ApiResponse answer(const RowsQuery& query, const TableEntry& entry, const SampleResult& result) {
    if (result.status != SampleStatus::Ok) return refusal(result.status);
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
    if (!layout) return call.respond(refusal(SampleStatus::NotReady)), std::nullopt;
    ApiResponse wrong;
    std::optional<RowsQuery> query = parseRowsQuery(call.target, call.request.accept, *layout, &wrong);
    if (!query) return call.respond(std::move(wrong)), std::nullopt;
    std::string unknown;
    if (!chooseSubnodes(framework_.subnodes, &query->subnodes, &unknown))
        return call.respond(problem(404, "no subnode has the name '" + unknown + "'")), std::nullopt;

    SampleQuery sample;
    sample.table = entry;
    sample.filter = query->filter;
    sample.subnodes = query->subnodes;
    sample.limit = query->limit;
    std::shared_ptr<SampleTicket> ticket;
    auto done = [respond = call.respond, query = *query, entry](SampleResult&& result) {
        if (result.status == SampleStatus::Abandoned) return;
        ApiResponse response;
        try {
            response = answer(query, *entry, result);
        } catch (...) {
            response = problem(500, "the answer needs more memory than there is");
        }
        result.rows = Batch();  // the answer may wait long in its connection
        respond(std::move(response));
    };
    const SampleStatus status = framework_.broker.sample(sample, std::move(done), &ticket);
    if (status != SampleStatus::Ok) return call.respond(refusal(status)), std::nullopt;
    host_trace_detail("table %s: rows asked for", entry->name().c_str());
    return ApiDeadline{query->deadline, [entry, ticket] {
                           ticket->abandon();
                           entry->countTimeout();
                           return problem(504,
                                          "table " + entry->name() + " did not answer within the deadline");
                       }};
}

}  // namespace almanac::host
