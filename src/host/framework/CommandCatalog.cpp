#include "host/framework/CommandCatalog.h"

#include "host/framework/Framework.h"
#include "host/model/Table.h"

namespace almanac::host {
namespace {

bool calls(std::string_view text, const DeclaredCommand& command) {
    switch (command.form) {
        case HBX_COMMAND_WORD:
            return equalsNoCase(text.substr(0, text.find(' ')), command.name);
        case HBX_COMMAND_BRACKETS: {
            const std::size_t length = command.name.size();
            return text.substr(0, length) == command.name && (text.size() == length || text[length] == ' ' || text[length] == '[');
        }
        case HBX_COMMAND_WHOLE:
            return equalsNoCase(text, command.name);
    }
    return false;
}

}  // namespace

bool CommandCatalog::declare(DeclaredCommand command) {
    const std::lock_guard guard(mutex_);
    for (const DeclaredCommand& c : commands_) {
        if (equalsNoCase(c.name, command.name)) return false;
    }
    commands_.push_back(std::move(command));
    return true;
}

std::vector<DeclaredCommand> CommandCatalog::list() const {
    const std::lock_guard guard(mutex_);
    return commands_;
}

std::optional<DeclaredCommand> CommandCatalog::find(std::string_view name) const {
    const std::lock_guard guard(mutex_);
    for (const DeclaredCommand& c : commands_) {
        if (equalsNoCase(c.name, name)) return c;
    }
    return std::nullopt;
}

std::string CommandCatalog::nearest(std::string_view name) const {
    const std::lock_guard guard(mutex_);
    std::vector<std::string_view> names;
    for (const DeclaredCommand& c : commands_) names.emplace_back(c.name);
    return nearestName(name, names);
}

std::optional<HBX_CommandForm> CommandCatalog::formOf(std::string_view text) const {
    const std::lock_guard guard(mutex_);
    for (const DeclaredCommand& c : commands_) {
        if (calls(text, c)) return c.form;
    }
    return std::nullopt;
}

void CommandCatalog::setComposer(HBX_CommandComposer composer) {
    const std::lock_guard guard(mutex_);
    composer_ = composer;
}

HBX_CommandComposer CommandCatalog::composer() const {
    const std::lock_guard guard(mutex_);
    return composer_;
}

}  // namespace almanac::host

using almanac::host::DeclaredCommand;
using almanac::host::framework;

int HBX_DeclareCommand(const HBX_CommandInfo* info) {
    if (!info || !info->name || !*info->name) return 1;
    DeclaredCommand command;
    command.name = info->name;
    command.form = info->form;
    command.title = info->title ? info->title : "";
    for (int i = 0; i < info->parameterCount; ++i) {
        const HBX_CommandParameter& p = info->parameters[i];
        command.parameters.push_back({p.name ? p.name : "", p.defaultValue ? p.defaultValue : ""});
    }
    framework().commands.declare(std::move(command));
    return 0;
}

void HBX_RegisterCommandComposer(HBX_CommandComposer composer) { framework().commands.setComposer(composer); }
