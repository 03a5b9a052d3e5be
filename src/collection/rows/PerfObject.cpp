#include "collection/rows/PerfObject.h"

const char* const PERF_OBJECT_STATUS_STRING[] = {"PERF_OBJECT_ACTIVE", "PERF_OBJECT_INACTIVE"};

const char* const PERF_OBJECT_ERROR_CODE_STRING[] = {
#define PERF_OBJECT_CODE(name) #name,
#include "platform/perf_object_codes.inc"
#undef PERF_OBJECT_CODE
};

const char* perfObjectStatusName(int status) {
    return status == PERF_OBJECT_ACTIVE || status == PERF_OBJECT_INACTIVE ? PERF_OBJECT_STATUS_STRING[status] : "?";
}

const char* perfObjectErrorCodeName(int code) {
    return code >= 0 && code < PERF_OBJECT_ERROR_CODE_COUNT ? PERF_OBJECT_ERROR_CODE_STRING[code] : "?";
}
