// What the commands that ask the API have in common.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "cli/ApiClient.h"

namespace almanac::cli {

using Json = nlohmann::ordered_json;
inline constexpr char kJson[] = "application/json";

// Tells why an answer is not what was asked for; the exit status.
int refused(const ApiAnswer& answer);
// To standard output; kFailed, with one line, if it takes no more.
int writeOut(const std::string& text);
// An answer as it came, ended by a line feed.
int writeAnswer(const std::string& body);
// A cell for people. `decimals`: of a column that shows them, so that 0.5 and 12.25 stand as 0.50 and 12.25.
std::string cellText(const Json& value, int decimals = 0);

}  // namespace almanac::cli
