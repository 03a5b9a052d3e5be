#include "actions/OPXEmitter.h"

#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"
#include "platform/rnq.h"

namespace {

int errorFromErrno(int rnqErrno) { return rnqErrno >= 2 && rnqErrno <= 4 ? rnqErrno - 1 : 4; }

}  // namespace

OPXEmitter::OPXEmitter(const char* confFile) : confFile_(confFile ? confFile : ""), haveConfFile_(confFile != nullptr) {
    TRACE_FUNCTION();
    if (!confFile) {
        trace_detail("NULL confFile passed to OPXEmitter");
        error_ = 1;
    }
    handle_ = rnq_create_OPX_handle(confFile ? confFile_.data() : nullptr, 0, 0);
    if (handle_ == 0) {
        trace_detail("rnq_create_OPX_handle() failed, rnq_errno = %d", rnq_errno);
        error_ = errorFromErrno(rnq_errno);
    }
}

OPXEmitter::~OPXEmitter() { rnq_destroy_handle(handle_); }

char* OPXEmitter::getenv(const char* name) {
    TRACE_FUNCTION();
    if (!name || std::strlen(name) >= kValueSize) return nullptr;
    std::string buffer(name);
    buffer.resize(kValueSize);
    const int length = rnq_agent_getenv_r(handle_, buffer.data());
    return length > 0 && length < kValueSize ? strndup(buffer.data(), static_cast<std::size_t>(length)) : nullptr;
}

int OPXEmitter::sendEvent(const char* text) {
    TRACE_FUNCTION();
    if (!text) return -1;
    std::string copy(text);
    return rnq_put_event(handle_, copy.data());
}
