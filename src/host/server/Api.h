// The routes of the HTTP API over the framework. docs/host-api.md describes them.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/framework/Framework.h"
#include "host/server/ApiMessage.h"
#include "host/server/HttpTarget.h"

namespace almanac::host {

class Api {
  public:
    // `dataDirectory` holds the token. The framework must outlive the answers.
    Api(Framework& framework, std::string dataDirectory);

    // Answers one request, at once or later. Never calls the agent on this thread.
    std::optional<ApiDeadline> handle(const ApiRequest& request, Respond respond);

  private:
    struct Call {
        const ApiRequest& request;
        const HttpTarget& target;
        Respond& respond;
    };
    using Handler = std::optional<ApiDeadline> (Api::*)(Call& call, const std::string& name);
    struct Route {
        const char* path;  // segments; "{}" stands for a name
        const char* allow;
        Handler handler;
    };
    static const Route kRoutes[];

    // An answer if the request may not go on: wrong Host, foreign origin, missing or wrong token.
    std::optional<ApiResponse> gate(const ApiRequest& request) const;
    std::shared_ptr<TableEntry> tableOrProblem(Call& call, const std::string& name) const;

    std::optional<ApiDeadline> agent(Call& call, const std::string& name);
    std::optional<ApiDeadline> tables(Call& call, const std::string& name);
    std::optional<ApiDeadline> table(Call& call, const std::string& name);
    std::optional<ApiDeadline> rows(Call& call, const std::string& name);
    std::optional<ApiDeadline> status(Call& call, const std::string& name);
    std::optional<ApiDeadline> nodes(Call& call, const std::string& name);
    std::optional<ApiDeadline> events(Call& call, const std::string& name);
    std::optional<ApiDeadline> trace(Call& call, const std::string& name);
    std::optional<ApiDeadline> healthz(Call& call, const std::string& name);
    std::optional<ApiDeadline> readyz(Call& call, const std::string& name);

    Framework& framework_;
    const std::string dataDirectory_;
    const std::chrono::steady_clock::time_point started_;
    const std::int64_t startedWall_;  // milliseconds since 1970
};

// The API's token file, "<data directory>/token", mode 0600: made at first use with 32 random bytes in
// hexadecimal. False, with one line in `error`, if it cannot be made.
bool prepareToken(const std::string& dataDirectory, std::string* error);
// Compares in constant time. False if there is no token, or others may read it.
bool tokenMatches(const std::string& dataDirectory, const std::string& presented);

}  // namespace almanac::host
