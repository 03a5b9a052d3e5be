// Commands on their way to the agent's callback.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "host/framework/AgentInfo.h"
#include "host/framework/RequestBroker.h"

namespace almanac::host {

struct ActionQuery {
    std::string command;
    std::string user;     // empty: nobody is named
    std::string table;    // what the request gives as its table
    std::string subnode;  // the managed system that the command is for; empty for the agent itself
    std::string situation;
};

struct ActionResult {
    SampleStatus status = SampleStatus::Failed;  // Ok: the command has been finished
    int returnCode = 0;
    std::string message;
};

class ActionBroker {
  public:
    static constexpr std::size_t kMaxUnfinished = 64;

    ActionBroker(RequestBroker& broker, AgentInfo& agent) : broker_(broker), agent_(agent) {}

    // Runs one command. On Ok `done` is called exactly once when the agent has finished the command, on
    // whatever thread finishes it; it must not throw. Busy: too many commands wait or are unfinished.
    using Done = std::function<void(ActionResult&&)>;
    SampleStatus run(const ActionQuery& query, Done done);

    std::size_t unfinished() const { return unfinished_->load(); }

  private:
    RequestBroker& broker_;
    AgentInfo& agent_;
    std::shared_ptr<std::atomic<std::size_t>> unfinished_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace almanac::host
