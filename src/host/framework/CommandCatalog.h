// The commands that the agent has declared by name. Every operation may be called from any thread.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zhb.h"

namespace almanac::host {

struct DeclaredCommand {
    struct Parameter {
        std::string name;
        std::string defaultValue;
    };
    std::string name;
    HBX_CommandForm form = HBX_COMMAND_WORD;
    std::string title;
    std::vector<Parameter> parameters;
};

class CommandCatalog {
  public:
    // False if there is one of that name already.
    bool declare(DeclaredCommand command);
    std::vector<DeclaredCommand> list() const;  // in the order of their declaration
    // By name, in any case.
    std::optional<DeclaredCommand> find(std::string_view name) const;
    std::string nearest(std::string_view name) const;
    // The form of the declared command that the text calls; nothing for free text.
    std::optional<HBX_CommandForm> formOf(std::string_view text) const;

    void setComposer(HBX_CommandComposer composer);
    HBX_CommandComposer composer() const;

  private:
    mutable std::mutex mutex_;
    std::vector<DeclaredCommand> commands_;
    HBX_CommandComposer composer_ = nullptr;
};

}  // namespace almanac::host
