// The trace route: shows and changes the selection while the agent runs.
#include <nlohmann/json.hpp>

#include "host/base/Trace.h"
#include "host/model/Json.h"
#include "host/server/Api.h"

namespace almanac::host {
namespace {

// The text member "spec" of a JSON object that has no other member.
bool readSpec(const std::string& body, std::string* spec) {
    const nlohmann::json document = nlohmann::json::parse(body, nullptr, false);
    if (!document.is_object() || document.size() != 1 || !document.contains("spec")) return false;
    const nlohmann::json& value = document["spec"];
    if (!value.is_string()) return false;
    *spec = value.get<std::string>();
    return true;
}

}  // namespace

std::optional<ApiDeadline> Api::trace(Call& call, const std::string&) {
    if (!call.target.query.empty())
        return call.respond(problem(400, "there are no parameters here")), std::nullopt;
    if (call.request.method == "PUT") {
        std::string spec, error;
        if (!readSpec(call.request.body, &spec))
            return call.respond(problem(400, "the body must be {\"spec\": \"a trace selection\"}")),
                   std::nullopt;
        if (!configureTrace(spec, &error)) return call.respond(problem(400, error)), std::nullopt;
    }
    ApiResponse response;
    response.contentType = "application/json";
    JsonWriter json(&response.body);
    json.beginObject().key("spec").value(traceSpec());
    json.key("lines_dropped").value(static_cast<long long>(traceLinesDropped())).endObject();
    response.body += '\n';
    call.respond(std::move(response));
    return std::nullopt;
}

}  // namespace almanac::host
