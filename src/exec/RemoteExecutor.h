// What the command runner and the script provider need of a connection that runs commands on another host. The
// connector derives from it and registers its factory before main; without one, scripts run locally.
#pragma once

#include <memory>

#include "foundation/List.h"
#include "foundation/ZbtString.h"

class VXClientClass;

class RemoteExecutor {
  public:
    virtual ~RemoteExecutor() = default;

    // Runs the command. Returns 0 or a PERF_OBJECT_ERROR_CODE. Texts that came are malloc'd and become the caller's;
    // the pointer of a stream without text stays as it was. Several workers may be inside at once.
    virtual int executeScript(const ZBT::String& command, char** stdoutText, char** stderrText) = 0;

    virtual int status() const = 0;     // 0 well, 1 failed
    virtual int errorCode() const = 0;  // a PERF_OBJECT_ERROR_CODE, 0 when well

    // Files that are copied to the host before a command that names them runs.
    virtual void addCommandFile(const char* name) = 0;
    virtual void addCommandFileList(List& files) = 0;
    virtual List& commandFileList() = 0;

    virtual int disconnect() = 0;  // 0 or an error code
};

// Makes the connector of a query class, or of its copy for a subnode (null for the class of the reference file).
using RemoteExecutorFactory = std::shared_ptr<RemoteExecutor> (*)(VXClientClass* owner, const char* subnode);

void registerRemoteExecutorFactory(RemoteExecutorFactory factory);
RemoteExecutorFactory remoteExecutorFactory();  // null when there is none
