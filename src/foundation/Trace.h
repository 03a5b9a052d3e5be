// The trace macros of the core, over platform/ztr.h. TRACE_FUNCTION(); stands at the top of an operation that
// traces: it makes the operation's unit and records its entry and exit when the flow class is on. After it,
// trace_error, trace_state, trace_flow and trace_detail take a printf format that the compiler checks, and
// trace_is_on(ZTR1_DETAIL) guards work that only a trace needs. Arguments are not evaluated when the class is
// off, which costs one load and one branch. The macros work in lambdas of the operation too.
#pragma once

#include "platform/ztr.h"

namespace almanac {

// True if a class is on for the unit; asks the host the first time.
inline bool traceUnitIsOn(ZTR1_Unit& unit, unsigned traceClass) {
    unsigned mask = unit.mask.load(std::memory_order_relaxed);
    if ((mask & (traceClass | ZTR1_UNSYNCED)) == 0) [[likely]]
        return false;
    if ((mask & ZTR1_UNSYNCED) != 0) mask = ZTR1_Sync(&unit);
    return (mask & traceClass) != 0;
}

// Flow records of one call. The exit is recorded if the entry was, whatever the mask is by then.
class TraceFlow {
  public:
    TraceFlow(ZTR1_Unit& unit, int line)
        : unit_(traceUnitIsOn(unit, ZTR1_FLOW) ? &unit : nullptr), line_(line) {
        if (unit_) ZTR1_Event(unit_, line_, ZTR1_ENTRY);
    }
    ~TraceFlow() {
        if (unit_) ZTR1_Event(unit_, line_, ZTR1_EXIT);
    }
    TraceFlow(const TraceFlow&) = delete;
    TraceFlow& operator=(const TraceFlow&) = delete;

  private:
    ZTR1_Unit* unit_;
    int line_;
};

}  // namespace almanac

#define TRACE_FUNCTION()                                       \
    static constinit ZTR1_Unit traceUnit_(__FILE__, __func__); \
    const ::almanac::TraceFlow traceFlow_(traceUnit_, __LINE__)

#define trace_is_on(traceClass) (::almanac::traceUnitIsOn(traceUnit_, (traceClass)))

#define trace_printf_(traceClass, ...)                                                              \
    do {                                                                                            \
        if (trace_is_on(traceClass)) ZTR1_Printf(&traceUnit_, __LINE__, (traceClass), __VA_ARGS__); \
    } while (false)

#define trace_error(...) trace_printf_(ZTR1_ERROR, __VA_ARGS__)
#define trace_state(...) trace_printf_(ZTR1_STATE, __VA_ARGS__)
#define trace_flow(...) trace_printf_(ZTR1_FLOW, __VA_ARGS__)
#define trace_detail(...) trace_printf_(ZTR1_DETAIL, __VA_ARGS__)
