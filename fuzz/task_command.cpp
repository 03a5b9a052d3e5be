// Any request against any task. First byte: number of parameters; then for each of them a byte of flags and its texts,
// each ended by a zero byte; then the task's command likewise; the rest is the request.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "actions/TaskElement.h"
#include "host/base/Trace.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    almanac::host::configureTrace("NONE", nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto take = [&rest] {
        const std::size_t end = std::min(rest.find('\0'), rest.size());
        const std::string text = rest.substr(0, end);
        rest.erase(0, end + 1);
        return text;
    };
    std::vector<std::unique_ptr<TaskParameter>> parameters;
    for (int i = data[0] & 3; i > 0; --i) {
        const std::string flags = take();
        const unsigned char flag = flags.empty() ? 0 : static_cast<unsigned char>(flags[0]);
        constexpr const char* kQuotes[] = {nullptr, "true", "doublequote", "false"};
        const std::string name = take(), start = take(), end = take(), given = take();
        parameters.push_back(std::make_unique<TaskParameter>(name.c_str(), flag & 8 ? nullptr : given.c_str(), kQuotes[flag & 3],
                                                             start.c_str(), end.c_str(), flag & 4 ? "false" : nullptr));
        const std::string quoted = parameters.back()->quoted(rest);
        if (parameters.back()->isQuoted() && (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"')) std::abort();
    }
    const std::string command = take();
    const bool none = parameters.empty();
    TaskElement task("key", command.c_str(), nullptr);
    for (auto& parameter : parameters) task.addParameter(std::move(parameter));
    const std::optional<std::string> expanded = task.getTaskCommand(rest);
    if (none && expanded != command) std::abort();
    if (expanded && expanded->size() > TaskParameter::kLongestCommand) std::abort();
    if (expanded != task.getTaskCommand(rest)) std::abort();  // nothing stays of a request
    return 0;
}
