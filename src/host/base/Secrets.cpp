#include "host/base/Secrets.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <mutex>

namespace almanac::host {
namespace {

constexpr std::size_t kShortest = 4;
constexpr std::size_t kMost = 4096;

struct Secrets {
    std::mutex mutex;
    std::array<std::deque<std::string>, 256> byFirstByte;  // the longest first
    std::deque<std::string> byAge;
    std::atomic<std::size_t> longest{0};
};

Secrets& secrets() {
    static Secrets* const one = new Secrets;  // outlives static destruction
    return *one;
}

std::size_t firstByte(std::string_view text) { return static_cast<unsigned char>(text.front()); }

void forgetOldest(Secrets& all) {
    std::string& oldest = all.byAge.front();
    auto& row = all.byFirstByte[firstByte(oldest)];
    row.erase(std::find(row.begin(), row.end(), oldest));
    all.byAge.pop_front();
}

}  // namespace

void registerSecret(const std::string& value) {
    if (value.size() < kShortest) return;
    try {
        Secrets& all = secrets();
        const std::lock_guard<std::mutex> hold(all.mutex);
        auto& row = all.byFirstByte[firstByte(value)];
        if (std::find(row.begin(), row.end(), value) != row.end()) return;
        if (all.byAge.size() >= kMost) forgetOldest(all);
        const auto place = std::find_if(
            row.begin(), row.end(), [&](const std::string& other) { return other.size() <= value.size(); });
        row.insert(place, value);
        all.byAge.push_back(value);
        all.longest.store(std::max(all.longest.load(), value.size()), std::memory_order_release);
    } catch (...) {  // no memory: the caller has bigger trouble, and there is nobody to tell
    }
}

std::size_t longestSecret() { return secrets().longest.load(std::memory_order_acquire); }

std::string maskSecrets(std::string_view text, std::size_t length) {
    length = std::min(length, text.size());
    Secrets& all = secrets();
    const std::lock_guard<std::mutex> hold(all.mutex);
    std::string out;
    out.reserve(length);
    for (std::size_t at = 0; at < length;) {
        const std::string_view rest = text.substr(at);
        const auto& row = all.byFirstByte[firstByte(rest)];
        const auto found = std::find_if(row.begin(), row.end(), [&](const std::string& secret) {
            return rest.substr(0, secret.size()) == secret;
        });
        if (found == row.end()) {
            out.push_back(text[at++]);
        } else {
            out += "xxx";
            at += found->size();
        }
    }
    return out;
}

}  // namespace almanac::host
