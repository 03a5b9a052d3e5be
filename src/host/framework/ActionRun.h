// The framework's side of a command capsule.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "platform/zhb.h"

namespace almanac::host {

// Marks the capsule as finished and tells whoever waits for it; the second call on a capsule does nothing.
void finishCapsule(AghbxAutomationCapsule* capsule);

// Runs a command through the registered callback on this thread, for `request`. The command's return code, or
// -1 without a callback or if the command was not finished when the callback returned.
int runCommandHere(const std::string& command, const char* user, aghbx* request);

}  // namespace almanac::host

struct AghbxAutomationCapsule::Impl {
    std::string command;
    std::string user;
    bool hasUser = false;
    aghbx* request = nullptr;

    mutable std::mutex mutex;  // guards what follows
    std::string message;
    int results = 0;
    bool finished = false;
    std::function<void()> onFinished;
};
