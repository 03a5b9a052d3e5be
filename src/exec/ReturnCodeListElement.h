// What one exit code of a command means: an `rc` element of a functionality test or of a task.
#pragma once

#include <string>

#include "foundation/List.h"

enum RETURN_CODE : int {
    RC_OK = 0,
    RC_NOT_RUN = 1,  // no command was run
    RC_GENERAL_ERROR = 2,
    RC_WARNING = 3,
    RC_NOT_RUNNING = 4,
    RC_DEPENDENT_NOT_RUNNING = 5,
    RC_ALREADY_RUNNING = 6,
    RC_PREREQ_NOT_RUNNING = 7,
    RC_TIMED_OUT = 8,
    RC_DOESNT_EXIST = 9,
    RC_UNKNOWN_TYPE = 10,  // a `type` that has no code of its own
    RC_DEPENDENT_STILL_RUNNING = 11,
    RC_INSUFFICIENT_USER_AUTHORITY = 12,
};

// The code of a `type` text, in any case; "OK" and "SUCCESS" are 0, a text that is not known and null are 10.
RETURN_CODE returnCodeOfType(const char* type);

// The texts that returnCodeOfType knows, ended by null; for those who check a reference file.
extern const char* const returnCodeTypes[];

class ReturnCodeListElement : public ListElement {
  public:
    // `rc` goes through atoi; null texts count as empty ones. The mapped code stays RC_NOT_RUN until it is set.
    ReturnCodeListElement(const char* rc, const char* message);

    int getApplicationReturnCode() const { return applicationReturnCode_; }
    RETURN_CODE getMappedReturnCode() const { return mappedReturnCode_; }
    const char* getMessage() const { return message_.c_str(); }
    void setMappedReturnCode(const char* type) { mappedReturnCode_ = returnCodeOfType(type); }

  private:
    int applicationReturnCode_;
    RETURN_CODE mappedReturnCode_ = RC_NOT_RUN;
    std::string message_;
};
