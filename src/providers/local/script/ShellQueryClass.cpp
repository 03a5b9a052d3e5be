#include "providers/local/script/ShellQueryClass.h"

#include <cstdlib>

#include "config/ConfigMap.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"
#include "providers/local/script/ScriptRows.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// Owns a malloc'd text until it has been copied.
std::string takeText(char* text) {
    std::string copy = text ? text : "";
    std::free(text);
    return copy;
}

const char* subnodeTypeOf(const VXClientClass* query) {
    return query->getAttributeGroupMeta() ? query->getAttributeGroupMeta()->subnodeType() : nullptr;
}

PERF_OBJECT_ERROR_CODE errorOf(_CWTStatus status) {
    switch (status) {
        case CWT_LAUNCH_FAILED:
            return SCRIPT_LAUNCH_ERROR;
        case CWT_NOT_FOUND:
            return SCRIPT_NOT_FOUND;
        case CWT_ACCESS_DENIED:
            return ACCESS_DENIED;
        default:
            return GENERIC_ERROR;
    }
}

}  // namespace

ShellQueryClass::ShellQueryClass(const char* app, const char* ag, const char* command, const char* separator,
                                 const char* name, bool utf8, bool ssh)
    : ResultsManager(app, ag, VX_SHELL),
      rawCommand_(command ? command : ""),
      command_(takeText(Utilities::substituteEnvVars(rawCommand_.c_str(), nullptr, nullptr, false))),
      separator_(separator ? separator : ""),
      name_(name ? name : ""),
      utf8_(utf8),
      useSsh_(ssh) {
    TRACE_FUNCTION();
    readTimeout();
    trace_detail("Command %s Separator %s UTF8 %d\n", command_.c_str(), separator_.c_str(), utf8_ ? 1 : 0);
    if (useSsh_) connect(nullptr);
}

ShellQueryClass::ShellQueryClass(ShellQueryClass* parent, const char* subnode)
    : ResultsManager(parent, subnode, true),
      command_(takeText(Utilities::substituteEnvVars(parent->rawCommand_.c_str(), subnodeTypeOf(parent), subnode, false))),
      separator_(parent->separator_),
      name_(parent->name_),
      utf8_(parent->utf8_),
      useSsh_(parent->useSsh_),
      timeout_(parent->timeout_) {
    TRACE_FUNCTION();
    HashMap* variables = getSubnodeInstanceEnv(subnode, subnodeTypeOf(parent));
    environment_ = takeText(CommandWithTimeout::buildEnvString(variables));
    freeSubnodeInstanceEnv(variables);
    if (!useSsh_) return;
    connect(subnode);
    if (connector_ && parent->connector_) connector_->addCommandFileList(parent->connector_->commandFileList());
}

ShellQueryClass::~ShellQueryClass() {
    TRACE_FUNCTION();
    if (connector_) connector_->disconnect();
    connector_.reset();
    if (outstanding_) {
        outstanding_->cleanupFinishedCommands();
        outstanding_->letGoOfAll();
    }
    clearResultSet();
}

void ShellQueryClass::readTimeout() {
    TRACE_FUNCTION();
    const char* text = ZSV1_GetEnv("CDP_DP_SCRIPT_TIMEOUT");
    timeout_ = CommandWithTimeout::timeoutFromText(text);
    if (!text) {
        trace_detail("script timeout not set, setting to default %d\n", timeout_);
    } else if (timeout_ == CommandWithTimeout::kShortestTimeout) {
        trace_detail("script timeout set to minimum %d\n", timeout_);
    } else {
        trace_detail("script timeout for actions set to %d\n", timeout_);
    }
}

// Without a working connector the command runs locally; there is no second attempt.
void ShellQueryClass::connect(const char* subnode) {
    TRACE_FUNCTION();
    const RemoteExecutorFactory make = remoteExecutorFactory();
    if (make) connector_ = make(this, subnode);
    if (connector_ && connector_->status() == 0) return;
    trace_error("Error initializing SSH Connector class - disabling SSH\n");
    connector_.reset();
    useSsh_ = false;
}

void ShellQueryClass::addCommandFile(const char* name) {
    if (connector_ && name) connector_->addCommandFile(name);
}

void ShellQueryClass::setPerfObjectStatus(PERF_OBJECT_STATUS status) {
    TRACE_FUNCTION();
    objectStatus_ = status;
    trace_detail("Object status being set to: %s", perfObjectStatusName(status));
}

void ShellQueryClass::setPerfErrorCode(int code) {
    TRACE_FUNCTION();
    errorCode_ = code;
    trace_detail("Errror code being set to: %s", perfObjectErrorCodeName(code));
}

void ShellQueryClass::printResults() {
    traceResults(ZTR1_FLOW, "Instances and Values for Shell class");
}

VXClientClass* ShellQueryClass::subnodeCopy(const char* subnodeKey, VXClientClassList* /*list*/) {
    return new ShellQueryClass(this, subnodeKey);
}

void ShellQueryClass::internalCollectData(const char* /*requestId*/) {
    TRACE_FUNCTION();
    if (outstanding_) {
        outstanding_->cleanupFinishedCommands();
        if (outstanding_->tooManyOutstanding(command_.c_str())) return;
    }
    auto command = std::make_unique<CommandWithTimeout>(isRemote() ? connector_ : nullptr, command_.c_str(), timeout_,
                                                        environment_.c_str());
    const int result = command->runCommand();
    if (result == 0) {
        takeRows(*command);
    } else if (result == 1) {
        setPerfObjectStatus(PERF_OBJECT_INACTIVE);
        setPerfErrorCode(TIMEOUT);
        if (!outstanding_) outstanding_ = std::make_unique<CommandWithTimeoutList>();
        outstanding_->add(command.release());
    } else {
        reportFailure(*command);
    }
}

void ShellQueryClass::reportFailure(CommandWithTimeout& command) {
    TRACE_FUNCTION();
    if (isRemote()) {
        setPerfErrorCode(connector_->errorCode());
        return;
    }
    trace_error("popen FAILED!!!!!");
    setPerfObjectStatus(PERF_OBJECT_INACTIVE);
    setPerfErrorCode(errorOf(command.getStatus()));
}

void ShellQueryClass::takeRows(CommandWithTimeout& command) {
    TRACE_FUNCTION();
    setPerfObjectStatus(PERF_OBJECT_ACTIVE);
    ScriptRows rows(getMetricList(), getMetricCount(), separator_.c_str(), utf8_);
    const int count = rows.read(command.lines(), [this](ResultInstance* row) { addResultInstance(row); });
    // Kept: a failed command's rows stay, and its object is active.
    if (isRemote()) {
        setPerfErrorCode(connector_->errorCode());
    } else if (command.getRC() != 0) {
        setPerfErrorCode(SCRIPT_NONZERO_RETURN);
    } else {
        setPerfErrorCode(count > 0 ? OBJECT_ACTIVE : NO_INSTANCES_RETURNED);
    }
}
