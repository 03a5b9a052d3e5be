// The event console protocol is not spoken here: each call leaves its line in the trace and gives 0.
#include <atomic>

#include "host/base/HostTrace.h"
#include "platform/rnq.h"

thread_local int rnq_errno = 0;

namespace {
std::atomic<bool> workingCalls{false};
}

void rnq_enable(bool on) { workingCalls.store(on, std::memory_order_relaxed); }

int rnq_create_OPX_handle(char* /*configurationFile*/, int /*mode*/, int /*flags*/) {
    HOST_TRACE_FUNCTION();
    host_trace_detail("No OPX support on this platform, rnq_create_OPX_handle doing nothing");
    return 0;
}

int rnq_destroy_handle(int /*handle*/) { return 0; }

int rnq_agent_getenv_r(int /*handle*/, char* /*name*/) {
    HOST_TRACE_FUNCTION();
    host_trace_detail("No OPX support on this platform, rnq_agent_getenv_r doing nothing");
    return 0;
}

int rnq_put_event(int /*handle*/, char* /*text*/) {
    HOST_TRACE_FUNCTION();
    host_trace_detail("No OPX support on this platform, rnq_put_event doing nothing");
    return 0;
}
