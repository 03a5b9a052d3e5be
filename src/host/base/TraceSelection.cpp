#include "host/base/TraceSelection.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "platform/ztr.h"

namespace almanac::host {
namespace {

constexpr const char* kBlanks = " \t\r\n";

// Takes the next word off the front of `rest`; brackets are words of their own.
std::string nextWord(const std::string& text, std::size_t* at) {
    *at = text.find_first_not_of(kBlanks, *at);
    if (*at == std::string::npos) return "";
    std::size_t end = *at;
    if (text[end] == '(' || text[end] == ')') {
        ++end;
    } else {
        end = std::min(text.find_first_of(" \t\r\n()", end), text.size());
    }
    std::string word = text.substr(*at, end - *at);
    *at = end;
    return word;
}

bool classOf(const std::string& word, unsigned* mask) {
    static const struct {
        const char* name;
        unsigned mask;
    } kClasses[] = {{"ERROR", ZTR1_ERROR},
                    {"FLOW", ZTR1_FLOW},
                    {"STATE", ZTR1_STATE},
                    {"DETAIL", ZTR1_DETAIL},
                    {"ALL", ZTR1_ERROR | ZTR1_FLOW | ZTR1_STATE | ZTR1_DETAIL},
                    {"NONE", 0}};
    for (const auto& entry : kClasses) {
        if (strcasecmp(word.c_str(), entry.name) != 0) continue;
        *mask = entry.mask;
        return true;
    }
    return false;
}

bool fail(std::string* error, const std::string& text) {
    if (error) *error = text;
    return false;
}

}  // namespace

TraceSelection::TraceSelection() : general_(ZTR1_ERROR) {}

bool TraceSelection::parse(const std::string& text, TraceSelection* out, std::string* error) {
    TraceSelection result;
    result.text_ = text;
    bool generalNamed = false;
    std::size_t at = 0;
    for (std::string word = nextWord(text, &at); !word.empty(); word = nextWord(text, &at)) {
        unsigned mask = 0;
        if (classOf(word, &mask)) {
            result.general_ = generalNamed && mask != 0 ? result.general_ | mask : mask;
            generalNamed = true;
            continue;
        }
        if (word != "(") return fail(error, "trace selection: unknown class \"" + word + "\"");
        word = nextWord(text, &at);
        if (strncasecmp(word.c_str(), "UNIT:", 5) != 0 || word.size() == 5) {
            return fail(error, "trace selection: \"(\" must be followed by UNIT:name");
        }
        Unit unit;
        unit.name = word.substr(5);
        int classes = 0;
        for (word = nextWord(text, &at); classOf(word, &mask); word = nextWord(text, &at), ++classes) {
            unit.add = mask == 0 ? 0 : unit.add | mask;
            unit.clear = unit.clear || mask == 0;
        }
        if (word != ")")
            return fail(error, "trace selection: unknown class or missing \")\" at \"" + word + "\"");
        if (classes == 0) return fail(error, "trace selection: no class for UNIT:" + unit.name);
        result.units_.push_back(std::move(unit));
    }
    *out = std::move(result);
    return true;
}

unsigned TraceSelection::maskFor(const char* file, const char* function) const {
    const char* const slash = std::strrchr(file, '/');
    const char* const base = slash ? slash + 1 : file;
    unsigned mask = general_;
    for (const Unit& unit : units_) {
        // A prefix of the base name covers the name with its extension and without.
        if (strncasecmp(base, unit.name.c_str(), unit.name.size()) != 0 && unit.name != function) continue;
        mask = (unit.clear ? 0 : mask) | unit.add;
    }
    return mask;
}

}  // namespace almanac::host
