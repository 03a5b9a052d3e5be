// TaskLibrary: the tasks of the reference file. It finds the task that a command names, puts the parameters in, hands it
// to its handler (itself, unless another one has registered), turns the return code into a result, and reports the
// outcome to the table of actions.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "actions/TaskElement.h"
#include "actions/TaskHandler.h"
#include "exec/CommandWithTimeoutList.h"

class TakeActionStatus;

// What came of one action. Owns all it holds.
class TaskResult : public ListElement {
  public:
    TaskResult(const char* taskName, const char* message, RETURN_CODE code, int applicationCode);
    ~TaskResult() override;  // with the malloc'd texts of both lists
    TaskResult(const TaskResult&) = delete;
    TaskResult& operator=(const TaskResult&) = delete;

    const char* getTaskName() const { return taskName_.c_str(); }  // the friendly name
    const char* getMessage() const { return message_.c_str(); }
    int getReturnCode() const { return returnCode_; }  // a RETURN_CODE, or what the application gave
    int getApplicationReturnCode() const { return applicationCode_; }
    List* getInstances() { return &instances_; }
    List* getOutput() { return &output_; }
    void setOutcome(const char* message, int code, int applicationCode);

  private:
    std::string taskName_, message_;
    int returnCode_, applicationCode_;
    List instances_, output_;
};

class TaskLibrary : public TaskHandler {
  public:
    explicit TaskLibrary(const char* name);
    ~TaskLibrary() override;  // commands still running free themselves when they end
    TaskLibrary(const TaskLibrary&) = delete;
    TaskLibrary& operator=(const TaskLibrary&) = delete;

    void addTaskElement(TaskElement* element);  // takes over
    ListCursor getTaskElementListCursor() const { return ListCursor(first_); }
    // The first task of that name, in any case; null if there is none. Keys that are empty or hold a
    // blank are found by nobody.
    const TaskElement* findTaskElement(std::string_view name) const;

    // Runs a command on this thread: the task its first word names, or else the text itself. `msn` and `key` name the
    // subnode it is for (may be null), `user` who asked (may be null). Any thread, several at once. Never null: a task that
    // could not be run has RC_NOT_RUN and tells why.
    std::unique_ptr<TaskResult> executeTaskRequest(const char* command, const char* msn, const char* key, const char* user);
    // Runs the command in the shell, its configuration references replaced, or changes the configuration if it says so.
    // A command that outlives its time-out goes on; with ten of them no further one starts (TASK_TIMED_OUT).
    int handleTaskRequest(TaskRequestInfo info, List* instances, List* output) override;

    void setTakeActionStatus(TakeActionStatus* status) { status_ = status; }
    // Tells the table of actions, if there is one; nothing without a result.
    void sendActionStatus(const char* command, TaskResult* result, int taskId, const char* msn, const char* key,
                          const char* user);
    void sendDownHeartBeat();
    // The next action's number, from 1.
    static int incrementTaskID();

    int getTimeout() const { return timeout_; }  // seconds
    void setTimeout(int seconds) { timeout_ = seconds; }

  private:
    std::unique_ptr<TaskResult> perform(TaskRequestInfo info, const char* shownName, ListCursor codes);
    bool mayStart(const char* command);
    int run(const TaskRequestInfo& info, List* instances, List* output, std::string* told);

    TaskElement* first_ = nullptr;
    TaskElement* last_ = nullptr;
    std::unordered_map<std::string, TaskElement*> byName_;  // the first of each name, folded
    std::atomic<int> timeout_;
    std::atomic<TakeActionStatus*> status_{nullptr};
    std::mutex runningLock_;  // the list of commands that outlived their time-out
    CommandWithTimeoutList running_;
};

// The one library of the agent, made at start.
extern TaskLibrary* taskLibrary;
