#include "providers/local/availability/ApplicationPingListElement.h"

#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "providers/local/availability/SubstitutedText.h"

namespace {

enum Judgement { kDown = 0, kUp = 1, kUnknown = 2 };

constexpr const char* kUnexpected = "There was an unexpected return code received from the functionality test.";

}  // namespace

ApplicationPingListElement::ApplicationPingListElement(const char* component, const char* script)
    : component_(component ? component : ""), script_(substitutedText(script, false)) {
    readTimeout();
}

ApplicationPingListElement::~ApplicationPingListElement() {
    if (!outstanding_) return;
    outstanding_->cleanupFinishedCommands();
    outstanding_->letGoOfAll();
}

void ApplicationPingListElement::readTimeout() {
    TRACE_FUNCTION();
    const char* text = ZSV1_GetEnv("CDP_DP_PING_TIMEOUT");
    timeout_ = CommandWithTimeout::timeoutFromText(text);
    if (!text) {
        trace_detail("Application Ping timeout not set, setting to default %d\n", timeout_);
    } else if (timeout_ == CommandWithTimeout::kShortestTimeout) {
        trace_detail("Application Ping timeout set to minimum %d\n", timeout_);
    } else {
        trace_detail("Application Ping timeout for actions set to %d\n", timeout_);
    }
}

int ApplicationPingListElement::isApplicationAvailable() {
    TRACE_FUNCTION();
    if (outstanding_) {
        outstanding_->cleanupFinishedCommands();
        if (outstanding_->tooManyOutstanding(script_.c_str())) return kUnknown;
    }
    lastMessage_ = kUnexpected;
    lastReturnCode_ = RC_GENERAL_ERROR;
    trace_detail("Running Application Ping Command %s", script_.c_str());
    auto command = std::make_unique<CommandWithTimeout>(script_.c_str(), timeout_);
    command->discardOutput();
    const int outcome = command->runCommand();
    if (outcome == 0) return judge(command->getRC());
    if (outcome == 1) {
        if (!outstanding_) outstanding_ = std::make_unique<CommandWithTimeoutList>();
        outstanding_->add(command.release());
        lastReturnCode_ = RC_TIMED_OUT;
    }
    return kUnknown;
}

// Kept: of several elements with one exit code the last counts.
int ApplicationPingListElement::judge(int exitCode) {
    TRACE_FUNCTION();
    trace_detail("Application Ping Command %s returned %d", script_.c_str(), exitCode);
    const ReturnCodeListElement* meaning = nullptr;
    for (const ReturnCodeListElement* code = returnCodes_.first(); code; code = returnCodes_.after(code)) {
        if (code->getApplicationReturnCode() == exitCode) meaning = code;
    }
    if (!meaning) {
        trace_error("Application Ping Command \"%s\" returned undefined return code %d", script_.c_str(), exitCode);
        return kUnknown;
    }
    lastMessage_ = meaning->getMessage();
    lastReturnCode_ = meaning->getMappedReturnCode();
    return lastReturnCode_ == RC_OK ? kUp : kDown;
}
