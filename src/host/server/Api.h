// The routes of the HTTP API over the framework. docs/host-api.md describes them.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/framework/Framework.h"
#include "host/server/ActionLog.h"
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
    struct Caller {
        std::string name;
        bool commands = true;  // may give more than declared tasks
    };
    struct Call {
        const ApiRequest& request;
        const HttpTarget& target;
        Respond& respond;
        Caller caller;  // where a right was needed
    };
    enum class Right { Trace, Actions };
    using Handler = std::optional<ApiDeadline> (Api::*)(Call& call, const std::string& name);
    struct Route {
        const char* path;  // segments; "{}" stands for a name
        const char* allow;
        Handler handler;
        Right right = Right::Trace;  // to change something; Actions to ask, too
    };
    static const Route kRoutes[];

    // An answer if the request may not go on: wrong Host, foreign origin.
    std::optional<ApiResponse> gate(const ApiRequest& request) const;
    // An answer if whoever asks has not the right; else `caller` tells of them.
    std::optional<ApiResponse> authorise(const ApiRequest& request, Right right, Caller* caller) const;
    std::optional<ApiDeadline> startAction(Call& call);
    std::shared_ptr<TableEntry> tableOrProblem(Call& call, const std::string& name) const;

    std::optional<ApiDeadline> agent(Call& call, const std::string& name);
    std::optional<ApiDeadline> tables(Call& call, const std::string& name);
    std::optional<ApiDeadline> table(Call& call, const std::string& name);
    std::optional<ApiDeadline> rows(Call& call, const std::string& name);
    std::optional<ApiDeadline> status(Call& call, const std::string& name);
    std::optional<ApiDeadline> nodes(Call& call, const std::string& name);
    std::optional<ApiDeadline> events(Call& call, const std::string& name);
    std::optional<ApiDeadline> trace(Call& call, const std::string& name);
    std::optional<ApiDeadline> actions(Call& call, const std::string& name);
    std::optional<ApiDeadline> healthz(Call& call, const std::string& name);
    std::optional<ApiDeadline> readyz(Call& call, const std::string& name);

    Framework& framework_;
    const std::string dataDirectory_;
    const std::shared_ptr<ActionLog> actionLog_;
    const std::chrono::steady_clock::time_point started_;
    const std::int64_t startedWall_;  // milliseconds since 1970
};

// The answer for what the broker did not bring back; `what` is "request" or "action".
ApiResponse refusal(SampleStatus status, const char* what);

// Whose token a request has shown, and what it may do.
struct TokenHolder {
    std::string name;  // "" unless the file names it
    bool trace = false;
    bool actions = false;   // declared tasks
    bool commands = false;  // the agent's own commands and, where it is on, free text
};

// The API's token file, "<data directory>/token", mode 0600: made at first use with 32 random bytes in
// hexadecimal. False, with one line in `error`, if it cannot be made. Its lines are tokens of at least 16 bytes,
// each perhaps with name=WHO and the rights it is limited to ("trace", "actions", "commands") behind, parted by blanks.
bool prepareToken(const std::string& dataDirectory, std::string* error);
// The holder of a token, compared in constant time. Nothing if there is no such token, or others may read the file.
std::optional<TokenHolder> tokenHolder(const std::string& dataDirectory, const std::string& presented);

}  // namespace almanac::host
