// The one way in which the framework's threads step into the agent.
#pragma once

#include <cxxabi.h>

#include <atomic>

namespace almanac::host {

// Marks the scope in which this thread runs the agent's code on behalf of a request. Calls nest.
class AgentCall {
  public:
    AgentCall();
    ~AgentCall();
    AgentCall(const AgentCall&) = delete;
    AgentCall& operator=(const AgentCall&) = delete;

    static int running();        // calls of all threads
    static bool onThisThread();  // this thread is inside one
};

// Calls `function` inside the agent. False if it ended by an exception, which goes no further (the forced
// unwinding of a thread that is cancelled or exits does).
template <class Function>
bool callAgent(Function&& function) {
    const AgentCall inside;
    try {
        function();
        return true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return false;
    }
}

}  // namespace almanac::host
