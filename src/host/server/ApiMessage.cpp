#include "host/server/ApiMessage.h"

#include "host/model/Json.h"

namespace almanac::host {
namespace {

ApiResponse makeProblem(int status, std::string_view detail, std::string_view member, long long number) {
    ApiResponse response;
    response.status = status;
    response.contentType = "application/problem+json";
    JsonWriter json(&response.body);
    json.beginObject().key("type").value("about:blank").key("title").value(statusPhrase(status));
    json.key("status").value(status).key("detail").value(detail);
    if (!member.empty()) json.key(member).value(number);
    json.endObject();
    response.body += '\n';
    return response;
}

}  // namespace

ApiResponse problem(int status, std::string_view detail) { return makeProblem(status, detail, "", 0); }

ApiResponse problem(int status, std::string_view detail, std::string_view member, long long number) {
    return makeProblem(status, detail, member, number);
}

const char* statusPhrase(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 204:
            return "No Content";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 406:
            return "Not Acceptable";
        case 408:
            return "Request Timeout";
        case 413:
            return "Content Too Large";
        case 421:
            return "Misdirected Request";
        case 431:
            return "Request Header Fields Too Large";
        case 500:
            return "Internal Server Error";
        case 501:
            return "Not Implemented";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        case 504:
            return "Gateway Timeout";
        case 505:
            return "HTTP Version Not Supported";
        default:
            return "Unknown";
    }
}

}  // namespace almanac::host
