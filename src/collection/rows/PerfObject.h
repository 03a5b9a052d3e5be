// The status word and the error codes of every query class. The numbers reach rows and client programs: they never
// change.
#pragma once

enum PERF_OBJECT_STATUS : int { PERF_OBJECT_ACTIVE = 0, PERF_OBJECT_INACTIVE = 1 };

enum PERF_OBJECT_ERROR_CODE : int {
#define PERF_OBJECT_CODE(name) name,
#include "platform/perf_object_codes.inc"
#undef PERF_OBJECT_CODE
    PERF_OBJECT_ERROR_CODE_COUNT
};

// Names by number.
extern const char* const PERF_OBJECT_STATUS_STRING[];
extern const char* const PERF_OBJECT_ERROR_CODE_STRING[];

// The names for any number; "?" outside the tables.
const char* perfObjectStatusName(int status);
const char* perfObjectErrorCodeName(int code);
