// A functionality test: a command whose exit code says whether an application works, run with a bounded wait at each
// collection of the availability table. A command that outlives its time-out is left alone; with ten of them no further
// one starts until some have ended. Used by one collection at a time.
#pragma once

#include <memory>
#include <string>

#include "exec/CommandWithTimeoutList.h"
#include "exec/ReturnCodeListElement.h"
#include "providers/local/availability/ElementChain.h"

class ApplicationPingListElement : public ListElement {
  public:
    // `script` is run by the shell; ${NAME} in it is replaced where that is allowed. Null texts count as empty ones.
    ApplicationPingListElement(const char* component, const char* script);
    // Commands still running are left behind; each frees itself when it ends.
    ~ApplicationPingListElement() override;

    void addReturnCode(ReturnCodeListElement* code) { returnCodes_.append(code); }  // takes over

    // Runs the test. 0: the application is down, its exit code maps to anything but RC_OK; 1: up; 2: nothing can be said:
    // a time-out, no launch, an exit code that is not listed (0 included), or ten commands outstanding. The last return
    // code and message tell which; with ten outstanding they stay as they were.
    int isApplicationAvailable();

    const char* getApplicationComponent() const { return component_.c_str(); }
    const char* getScriptName() const { return script_.c_str(); }  // references replaced
    RETURN_CODE getLastReturnCode() const { return lastReturnCode_; }
    const char* getLastMessage() const { return lastMessage_; }  // null before the first run
    ListCursor getReturnCodeListCursor() const { return ListCursor(returnCodes_.first()); }
    int getTimeout() const { return timeout_; }  // seconds, from CDP_DP_PING_TIMEOUT
    void setTimeout(int seconds) { timeout_ = seconds; }

  private:
    void readTimeout();
    int judge(int exitCode);

    std::string component_;
    std::string script_;
    ElementChain<ReturnCodeListElement> returnCodes_;  // in the order of the reference file
    RETURN_CODE lastReturnCode_ = RC_OK;
    const char* lastMessage_ = nullptr;  // a return code's or a literal
    int timeout_ = 0;
    std::unique_ptr<CommandWithTimeoutList> outstanding_;  // made at the first time-out
};
