#include "host/framework/AgentCall.h"

#include "platform/zhb.h"

namespace almanac::host {
namespace {

std::atomic<int> callsRunning{0};
thread_local int depth = 0;

}  // namespace

AgentCall::AgentCall() {
    if (depth++ == 0) callsRunning.fetch_add(1);
}

AgentCall::~AgentCall() {
    if (--depth == 0) callsRunning.fetch_sub(1);
}

int AgentCall::running() { return callsRunning.load(); }
bool AgentCall::onThisThread() { return depth > 0; }

}  // namespace almanac::host

int HBX_RequestsRunning() { return almanac::host::AgentCall::running(); }
