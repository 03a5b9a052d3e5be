// What goes in and out of the API, free of sockets.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace almanac::host {

struct ApiRequest {
    std::string method;
    std::string target;
    std::string accept;
    std::string body;
    std::string authorization;
    std::string host;
    std::string origin;
    std::string fetchSite;  // Sec-Fetch-Site
    bool local = true;      // over the unix socket; its owner may do everything
    long peer = -1;         // of a local one: the user ID at the other end, -1 if it is not known
};

struct ApiResponse {
    int status = 200;
    std::string contentType;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

// Called exactly once, from any thread; what comes after the request's deadline is dropped.
using Respond = std::function<void(ApiResponse&&)>;

// A request that is answered later may have a deadline: after `after` without an answer `expired` gives the
// answer.
struct ApiDeadline {
    std::chrono::milliseconds after;
    std::function<ApiResponse()> expired;
};

// An error as application/problem+json (RFC 9457): status, title (the status' own phrase) and detail.
ApiResponse problem(int status, std::string_view detail);
// The same with one more member of the object, a number.
ApiResponse problem(int status, std::string_view detail, std::string_view member, long long number);

// "Not Found" for 404 and so on; "Unknown" for a status that is not used here.
const char* statusPhrase(int status);

}  // namespace almanac::host
