#include "host/server/HttpTarget.h"

#include "host/model/Table.h"

namespace almanac::host {
namespace {

constexpr std::size_t kMaxParameters = 64;

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// The text up to the separator, which is taken off `rest` together with it.
std::string_view cut(std::string_view* rest, char separator) {
    const std::size_t at = rest->find(separator);
    const std::string_view head = rest->substr(0, at);
    *rest = at == std::string_view::npos ? std::string_view() : rest->substr(at + 1);
    return head;
}

bool parseQuery(std::string_view text, HttpTarget* out, std::string* error) {
    while (!text.empty()) {
        std::string_view pair = cut(&text, '&');
        if (pair.empty()) continue;
        if (out->query.size() == kMaxParameters) {
            *error = "the query has more than 64 parameters";
            return false;
        }
        const std::string_view name = cut(&pair, '=');
        auto& [decodedName, decodedValue] = out->query.emplace_back();
        if (!percentDecode(name, true, &decodedName) || !percentDecode(pair, true, &decodedValue)) {
            *error = "the query has a broken percent escape";
            return false;
        }
    }
    return true;
}

// A weight of RFC 9110, 12.4.2 in thousandths, -1 for anything else.
int weightOf(std::string_view text) {
    if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1')) return -1;
    if (text.size() > 1 && text[1] != '.') return -1;
    int value = (text[0] - '0') * 1000, unit = 100;
    for (const char c : text.substr(std::min<std::size_t>(2, text.size()))) {
        if (c < '0' || c > '9') return -1;
        value += (c - '0') * unit;
        unit /= 10;
    }
    return value <= 1000 ? value : -1;
}

struct MediaRange {
    std::string_view type, subtype;
    int weight = 1000;
};

bool parseRange(std::string_view element, MediaRange* out) {
    std::string_view range = trim(cut(&element, ';'));
    out->type = cut(&range, '/');
    out->subtype = range;
    if (out->type.empty() || out->subtype.empty()) return false;
    if (out->type == "*" && out->subtype != "*") return false;
    while (!element.empty()) {
        std::string_view parameter = trim(cut(&element, ';'));
        const std::string_view name = trim(cut(&parameter, '='));
        if (!equalsNoCase(name, "q")) continue;
        out->weight = weightOf(trim(parameter));
        return out->weight >= 0;
    }
    return true;
}

// How exactly the range names the offer: 0 not at all, 1 any type, 2 the type, 3 type and subtype.
int specificity(const MediaRange& range, std::string_view offer) {
    const std::string_view type = cut(&offer, '/');
    if (range.type == "*") return 1;
    if (!equalsNoCase(range.type, type)) return 0;
    if (range.subtype == "*") return 2;
    return equalsNoCase(range.subtype, offer) ? 3 : 0;
}

}  // namespace

bool percentDecode(std::string_view text, bool plusIsBlank, std::string* out) {
    out->clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '+' && plusIsBlank) {
            c = ' ';
        } else if (c == '%') {
            if (i + 2 >= text.size()) return false;
            const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
            if (high < 0 || low < 0) return false;
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (c == '\0') return false;
        *out += c;
    }
    return true;
}

std::optional<HttpTarget> parseTarget(std::string_view target, std::string* error) {
    HttpTarget result;
    if (target == "*") {
        result.asterisk = true;
        return result;
    }
    if (!target.starts_with('/')) {
        const std::size_t scheme = target.find("://");
        if (scheme == std::string_view::npos || scheme == 0 ||
            !(equalsNoCase(target.substr(0, scheme), "http") ||
              equalsNoCase(target.substr(0, scheme), "https"))) {
            *error = "the request target is neither a path nor an http address";
            return std::nullopt;
        }
        target.remove_prefix(scheme + 3);
        const std::size_t path = target.find_first_of("/?");
        if (path == 0 || target.empty()) {
            *error = "the request target has no host";
            return std::nullopt;
        }
        target = path == std::string_view::npos ? std::string_view("/") : target.substr(path);
    }
    if (target.find('#') != std::string_view::npos) {
        *error = "the request target has a fragment";
        return std::nullopt;
    }
    std::string_view path = cut(&target, '?');
    if (path.starts_with('/')) path.remove_prefix(1);
    bool more = !path.empty();
    while (more) {
        more = path.find('/') != std::string_view::npos;
        if (!percentDecode(cut(&path, '/'), false, &result.path.emplace_back())) {
            *error = "the path has a broken percent escape";
            return std::nullopt;
        }
    }
    if (!parseQuery(target, &result, error)) return std::nullopt;
    return result;
}

int negotiate(std::string_view accept, const std::vector<std::string_view>& offers) {
    if (trim(accept).empty()) return offers.empty() ? -1 : 0;
    struct Choice {
        int specificity = 0;
        int weight = 0;
    };
    std::vector<Choice> choices(offers.size());
    while (!accept.empty()) {
        MediaRange range;
        if (!parseRange(cut(&accept, ','), &range)) continue;
        for (std::size_t i = 0; i < offers.size(); ++i) {
            const int found = specificity(range, offers[i]);
            if (found > choices[i].specificity) choices[i] = {found, range.weight};
        }
    }
    int best = -1, bestWeight = 0;
    for (std::size_t i = 0; i < offers.size(); ++i) {
        if (choices[i].weight > bestWeight) {
            best = static_cast<int>(i);
            bestWeight = choices[i].weight;
        }
    }
    return best;
}

bool isLoopbackAuthority(std::string_view authority) {
    constexpr std::string_view kNames[] = {"localhost", "127.0.0.1", "[::1]"};
    for (const std::string_view name : kNames) {
        if (authority.size() < name.size() || !equalsNoCase(authority.substr(0, name.size()), name)) continue;
        const std::string_view port = authority.substr(name.size());
        if (port.empty()) return true;
        if (port[0] != ':' || port.size() > 6) return false;
        return port.find_first_not_of("0123456789", 1) == std::string_view::npos;
    }
    return false;
}

}  // namespace almanac::host
