#include "exec/ReturnCodeListElement.h"

#include <strings.h>

#include <cstdlib>
#include <iterator>

namespace {

constexpr RETURN_CODE kCodes[] = {RC_OK,
                                  RC_OK,
                                  RC_GENERAL_ERROR,
                                  RC_WARNING,
                                  RC_NOT_RUNNING,
                                  RC_DEPENDENT_NOT_RUNNING,
                                  RC_ALREADY_RUNNING,
                                  RC_PREREQ_NOT_RUNNING,
                                  RC_TIMED_OUT,
                                  RC_DOESNT_EXIST,
                                  RC_DEPENDENT_STILL_RUNNING,
                                  RC_INSUFFICIENT_USER_AUTHORITY};

}  // namespace

const char* const returnCodeTypes[] = {"OK",
                                       "SUCCESS",
                                       "GENERAL_ERROR",
                                       "WARNING",
                                       "NOT_RUNNING",
                                       "DEPENDENT_NOT_RUNNING",
                                       "ALREADY_RUNNING",
                                       "PREREQ_NOT_RUNNING",
                                       "TIMED_OUT",
                                       "DOESNT_EXIST",
                                       "DEPENDENT_STILL_RUNNING",
                                       "INSUFFICIENT_USER_AUTHORITY",
                                       nullptr};
static_assert(std::size(returnCodeTypes) == std::size(kCodes) + 1);

RETURN_CODE returnCodeOfType(const char* type) {
    for (std::size_t i = 0; type && returnCodeTypes[i]; ++i) {
        if (strcasecmp(type, returnCodeTypes[i]) == 0) return kCodes[i];
    }
    return RC_UNKNOWN_TYPE;
}

ReturnCodeListElement::ReturnCodeListElement(const char* rc, const char* message)
    : applicationReturnCode_(rc ? std::atoi(rc) : 0), message_(message ? message : "") {}
