// The script provider: an attribute group takes its rows from the standard output of a command, run once for each
// collection, locally through the shell or remotely through a connector. A hanging command is abandoned after the
// time-out; with ten of them outstanding no further one starts until some have ended.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "collection/ResultsManager.h"
#include "exec/CommandWithTimeoutList.h"
#include "exec/RemoteExecutor.h"

class ShellQueryClass : public ResultsManager {
  public:
    // As the reference file declares it. `command` may hold ${NAME}; `separator` is a set of bytes. Null texts count as
    // empty ones.
    ShellQueryClass(const char* app, const char* ag, const char* command, const char* separator, const char* name,
                    bool utf8, bool ssh);
    // The copy for a subnode: references resolve against the subnode's configuration, whose variables stand in front of
    // a local command.
    ShellQueryClass(ShellQueryClass* parent, const char* subnode);
    // Commands still running are left behind; each frees itself when it ends.
    ~ShellQueryClass() override;

    void printResults() override;
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return name_.c_str(); }
    int getPerfObjectStatus() override { return objectStatus_; }
    int getPerfErrorCode() override { return errorCode_; }

    const char* getClassName() const { return command_.c_str(); }  // the command, references resolved
    bool getIsUTF8Input() const { return utf8_; }
    bool usesSsh() const { return useSsh_; }
    int getTimeout() const { return timeout_; }  // seconds
    void setTimeout(int seconds) { timeout_ = seconds; }
    void setPerfObjectStatus(PERF_OBJECT_STATUS status);
    void setPerfErrorCode(int code);  // a PERF_OBJECT_ERROR_CODE
    // One file to be copied to the remote host before a command; ignored without a connector.
    void addCommandFile(const char* name);

  private:
    void readTimeout();
    void connect(const char* subnode);
    bool isRemote() const { return useSsh_ && connector_ != nullptr; }
    void takeRows(CommandWithTimeout& command);
    void reportFailure(CommandWithTimeout& command);

    std::string rawCommand_;  // before substitution; only in the reference file's object
    std::string command_;
    std::string separator_;
    std::string name_;
    bool utf8_;
    bool useSsh_;
    std::atomic<int> objectStatus_{PERF_OBJECT_ACTIVE};
    std::atomic<int> errorCode_{0};
    int timeout_ = 0;
    std::unique_ptr<CommandWithTimeoutList> outstanding_;  // made at the first time-out
    std::string environment_;                              // subnode copies only
    std::shared_ptr<RemoteExecutor> connector_;
};
