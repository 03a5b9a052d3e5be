// The trace macros of the host's own code, over platform/ztr.h. HOST_TRACE_FUNCTION() stands at the top of an
// operation that traces; a class that is off costs one load and one branch.
#pragma once

#include "platform/ztr.h"

namespace almanac::host {

inline bool traceIsOn(ZTR1_Unit& unit, unsigned traceClass) {
    unsigned mask = unit.mask.load(std::memory_order_relaxed);
    if ((mask & (traceClass | ZTR1_UNSYNCED)) == 0) [[likely]]
        return false;
    if ((mask & ZTR1_UNSYNCED) != 0) mask = ZTR1_Sync(&unit);
    return (mask & traceClass) != 0;
}

// Flow records at entry and, if the entry was recorded, at exit.
class TraceScope {
  public:
    TraceScope(ZTR1_Unit& unit, int line) : unit_(traceIsOn(unit, ZTR1_FLOW) ? &unit : nullptr), line_(line) {
        if (unit_) ZTR1_Event(unit_, line_, ZTR1_ENTRY);
    }
    ~TraceScope() {
        if (unit_) ZTR1_Event(unit_, line_, ZTR1_EXIT);
    }
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

  private:
    ZTR1_Unit* unit_;
    int line_;
};

}  // namespace almanac::host

#define HOST_TRACE_FUNCTION()                                      \
    static constinit ZTR1_Unit hostTraceUnit_(__FILE__, __func__); \
    const ::almanac::host::TraceScope hostTraceScope_(hostTraceUnit_, __LINE__)

#define host_trace_printf_(traceClass, ...)                                  \
    do {                                                                     \
        if (::almanac::host::traceIsOn(hostTraceUnit_, traceClass))          \
            ZTR1_Printf(&hostTraceUnit_, __LINE__, traceClass, __VA_ARGS__); \
    } while (false)

#define host_trace_error(...) host_trace_printf_(ZTR1_ERROR, __VA_ARGS__)
#define host_trace_state(...) host_trace_printf_(ZTR1_STATE, __VA_ARGS__)
#define host_trace_flow(...) host_trace_printf_(ZTR1_FLOW, __VA_ARGS__)
#define host_trace_detail(...) host_trace_printf_(ZTR1_DETAIL, __VA_ARGS__)
