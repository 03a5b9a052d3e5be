// Tracing. Every function that traces owns one ZTR1_Unit, whose mask tells which classes are on for it. The
// mask starts as ZTR1_UNSYNCED, so that the first use asks the host; from then on a trace that is off costs
// one load and one branch. The macros over this are in foundation/Trace.h.
#pragma once

#include <atomic>

enum ZTR1_Class : unsigned {
    ZTR1_DETAIL = 0x01,
    ZTR1_STATE = 0x10,
    ZTR1_FLOW = 0x40,
    ZTR1_ERROR = 0x80,
    ZTR1_UNSYNCED = 0x80000000u,  // the mask has never been asked for
};

struct ZTR1_Unit {
    const char* file;      // static text
    const char* function;  // static text
    std::atomic<unsigned> mask{ZTR1_UNSYNCED};
    ZTR1_Unit* next = nullptr;  // the host's registry; units are never unregistered

    constexpr ZTR1_Unit(const char* file_, const char* function_) : file(file_), function(function_) {}
};

enum ZTR1_EventKind { ZTR1_ENTRY = 0, ZTR1_EXIT = 1 };

// Registers the unit at its first call and returns its present mask (without ZTR1_UNSYNCED).
unsigned ZTR1_Sync(ZTR1_Unit* unit);
// One record of the flow class.
void ZTR1_Event(ZTR1_Unit* unit, int line, ZTR1_EventKind kind);
// One message of a class; a trailing line feed is dropped, further ones and control bytes are escaped.
void ZTR1_Printf(ZTR1_Unit* unit, int line, unsigned traceClass, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
// A hexadecimal dump of up to 4,096 bytes under a title.
void ZTR1_Dump(ZTR1_Unit* unit, int line, unsigned traceClass, const char* title, const void* data, int length);
