// Pure parts of HTTP: request targets and their query (RFC 9112, 3.2; RFC 3986), the Accept header (RFC 9110,
// 12.5.1), the Host header. Functions of bytes, without state.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace almanac::host {

struct HttpTarget {
    std::vector<std::string> path;  // decoded segments; "/" has none, a '/' at the end adds an empty one
    std::vector<std::pair<std::string, std::string>> query;  // decoded, in order, names may repeat
    bool asterisk = false;                                   // the form "*"
};

// Reads the origin form, the absolute form (scheme and authority are dropped) and the asterisk form. Decoding
// is strict: '%' needs two hexadecimal digits, a decoded NUL is refused; '+' in the query is a blank; a
// fragment is refused. Nothing, with the reason in `error`, for anything else and for more than 64
// parameters.
std::optional<HttpTarget> parseTarget(std::string_view target, std::string* error);

// Decodes percent escapes; false for a broken one or a NUL.
bool percentDecode(std::string_view text, bool plusIsBlank, std::string* out);

// The index of the offer ("type/subtype") that the Accept text likes best, the first of equals; -1 if it
// takes none. An empty text takes the first. Elements that cannot be read are passed by.
int negotiate(std::string_view accept, const std::vector<std::string_view>& offers);

// True for localhost, 127.0.0.1 and [::1], with or without a port: what a browser's page of another site that
// has been rebound to this machine would not send.
bool isLoopbackAuthority(std::string_view authority);

}  // namespace almanac::host
