// Commands on their way to the agent's callback.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/framework/AgentInfo.h"
#include "host/framework/CommandCatalog.h"
#include "host/framework/RequestBroker.h"
#include "host/framework/TableCatalog.h"

namespace almanac::host {

struct ActionQuery {
    std::string command;  // the text; not read where `task` names one
    std::string user;     // empty: nobody is named
    std::string table;    // what the request gives as its table; empty: by whom the command is for
    std::string subnode;  // the managed system that the command is for; empty for the agent itself
    std::string situation;
    std::string task{};   // a declared command, whose text is made of the values; empty: the text stands
    std::vector<std::optional<std::string>> values{};  // of its parameters, in their order; none: the default
};

struct ActionResult {
    SampleStatus status = SampleStatus::Failed;  // Ok: the command has been finished
    int returnCode = 0;
    std::string message;
    std::string command;  // the text that was run
    std::string refusal;  // with Failed: why no text could be made of the values
    Batch rows;           // what the command put into the table of actions meanwhile, of layout null without one
    bool truncated = false;
    std::chrono::nanoseconds duration{0};
};

class ActionBroker {
  public:
    static constexpr std::size_t kMaxUnfinished = 64;

    // Bytes of rows that one command's answer holds.
    static constexpr std::size_t kMaxRowBytes = std::size_t{32} << 20;

    ActionBroker(RequestBroker& broker, AgentInfo& agent, TableCatalog& catalog, CommandCatalog& commands)
        : broker_(broker), agent_(agent), catalog_(catalog), commands_(commands) {}

    // Runs one command. On Ok `done` is called exactly once when the agent has finished the command, on
    // whatever thread finishes it; it must not throw. Busy: too many commands wait or are unfinished.
    using Done = std::function<void(ActionResult&&)>;
    SampleStatus run(const ActionQuery& query, Done done);

    std::size_t unfinished() const { return unfinished_->load(); }

  private:
    RequestBroker& broker_;
    AgentInfo& agent_;
    TableCatalog& catalog_;
    CommandCatalog& commands_;
    std::shared_ptr<std::atomic<std::size_t>> unfinished_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace almanac::host
