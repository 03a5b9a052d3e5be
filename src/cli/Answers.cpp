#include "cli/Answers.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/Commands.h"

namespace almanac::cli {

int refused(const ApiAnswer& answer) {
    complain(problemText(answer));
    return answer.reached && answer.status == 400 ? kUsage : kFailed;
}

int writeOut(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kDone;
    complain(std::string("standard output: ") + std::strerror(errno));
    return kFailed;
}

int writeAnswer(const std::string& body) { return writeOut(body.empty() || body.back() != '\n' ? body + "\n" : body); }

std::string cellText(const Json& value, int decimals) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_null()) return "";
    if (decimals <= 0 || !value.is_number()) return value.dump();
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value.get<double>());
    return text;
}

}  // namespace almanac::cli
