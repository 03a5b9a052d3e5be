#include "collection/StartHooks.h"

#include <vector>

namespace {

std::vector<std::function<void()>>& starts() {
    static auto* registered = new std::vector<std::function<void()>>;
    return *registered;
}

}  // namespace

void registerStart(std::function<void()> start) { starts().push_back(std::move(start)); }

void runRegisteredStarts() {
    std::vector<std::function<void()>> now;
    now.swap(starts());
    for (const auto& start : now) start();
}
