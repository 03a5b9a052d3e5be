// One-line tracing. TRACE_FUNCTION() at the top of an operation, then trace_error, trace_state, trace_flow or
// trace_detail with printf formats that the compiler checks. A trace that is off costs one load and one branch.
#pragma once

#include "platform/ztr.h"

namespace trace_impl {

// Entry and exit records of the flow class.
class Scope {
  public:
    Scope(ZTR1_Unit* unit, int line) : unit_(nullptr) {
        if (unit->mask.load(std::memory_order_relaxed) & (ZTR1_FLOW | ZTR1_UNSYNCED)) enter(unit, line);
    }
    ~Scope() {
        if (unit_) ZTR1_Event(unit_, line_, ZTR1_EXIT);
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

  private:
    void enter(ZTR1_Unit* unit, int line) {
        if (!(ZTR1_Sync(unit) & ZTR1_FLOW)) return;
        unit_ = unit;
        line_ = line;
        ZTR1_Event(unit, line, ZTR1_ENTRY);
    }
    ZTR1_Unit* unit_;
    int line_ = 0;
};

inline bool on(ZTR1_Unit* unit, unsigned traceClass) {
    const unsigned mask = unit->mask.load(std::memory_order_relaxed);
    if (!(mask & (traceClass | ZTR1_UNSYNCED))) return false;
    return (mask & ZTR1_UNSYNCED) ? (ZTR1_Sync(unit) & traceClass) != 0 : true;
}

}  // namespace trace_impl

#define TRACE_FUNCTION()                                                \
    static constinit ZTR1_Unit traceUnit{__FILE__, __func__};           \
    const trace_impl::Scope traceScope(&traceUnit, __LINE__)

// For small functions on hot paths: messages, but no entry and exit records.
#define TRACE_MESSAGES() [[maybe_unused]] static constinit ZTR1_Unit traceUnit { __FILE__, __func__ }

#define trace_is_on(traceClass) trace_impl::on(&traceUnit, traceClass)

#define TRACE_PRINT(traceClass, ...)                                                  \
    do {                                                                              \
        if (trace_is_on(traceClass)) ZTR1_Printf(&traceUnit, __LINE__, traceClass, __VA_ARGS__); \
    } while (false)

#define trace_error(...) TRACE_PRINT(ZTR1_ERROR, __VA_ARGS__)
#define trace_state(...) TRACE_PRINT(ZTR1_STATE, __VA_ARGS__)
#define trace_flow(...) TRACE_PRINT(ZTR1_FLOW, __VA_ARGS__)
#define trace_detail(...) TRACE_PRINT(ZTR1_DETAIL, __VA_ARGS__)
