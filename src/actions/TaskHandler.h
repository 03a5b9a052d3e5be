// TaskHandler: who carries out a task. The task library is the handler of every task that no other one has registered
// for.
#pragma once

#include <string>

#include "foundation/List.h"

// A request as a handler gets it: by value, of its own.
struct TaskRequestInfo {
    std::string name;     // the task's declared name, or the first word of the command
    std::string user;     // empty: nobody is named
    std::string command;  // with the parameters' values in it
    std::string subnode;  // the subnode's key; empty for the agent itself
};

// Results of a handler that are no return code of the task itself.
enum { TASK_FAILED = -1, TASK_TIMED_OUT = -2 };

class TaskHandler {
  public:
    // Runs the task on this thread; several may run at once. Adds malloc'd texts to both lists, one to one: which line
    // or object of the answer it is, and the text. Returns the task's return code, TASK_FAILED or TASK_TIMED_OUT.
    virtual int handleTaskRequest(TaskRequestInfo info, List* instances, List* output) = 0;
    virtual ~TaskHandler() = default;
};

// Gives all tasks of that name, in any case, to the handler, which must outlive them; the last registration stands, and a
// null handler takes it back. Any thread.
void registerTaskHandler(const char* taskName, TaskHandler* handler);
// Null: the library's own.
TaskHandler* findTaskHandler(const char* taskName);
