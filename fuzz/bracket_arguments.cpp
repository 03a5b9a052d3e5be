// Any bytes as the arguments of a configuration command, and as the output of a task.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "actions/ActionCallback.h"
#include "actions/TaskOutput.h"

namespace {

void checkArgument(const std::string& text) {
    if (text.find(']') != std::string::npos) std::abort();
    if (!text.empty() && (text.front() == ' ' || text.back() == ' ')) std::abort();
}

// The lists' texts, freed; their total length.
std::size_t release(List* list) {
    std::size_t total = 0;
    while (void* text = list->pop()) {
        total += std::string_view(static_cast<char*>(text)).size();
        std::free(text);
    }
    return total;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const char* const command = text.c_str();
    const BracketArguments arguments = parseBracketArguments(command);
    if (arguments.present != (std::string_view(command).find('[') != std::string_view::npos)) std::abort();
    if (!arguments.present && (arguments.hasSecond || !arguments.rest.empty())) std::abort();
    if (arguments.first.find(':') != std::string::npos) std::abort();
    checkArgument(arguments.first);
    checkArgument(arguments.second);
    for (const std::string& more : arguments.rest) checkArgument(more);

    for (const TaskEvents events : {TaskEvents::OneForEachLine, TaskEvents::OneForAll}) {
        const std::string_view output(command);
        List instances, lines;
        readTaskOutput(output, events, &instances, &lines);
        const int count = lines.getCount();
        if (count != instances.getCount() || (count == 0) != output.empty()) std::abort();
        std::size_t lineFeeds = 0;
        for (const char c : output) lineFeeds += c == '\n';
        release(&instances);
        const std::size_t kept = release(&lines);
        // Every byte but line feeds arrives.
        if (events == TaskEvents::OneForEachLine && kept != output.size() - lineFeeds) std::abort();
        if (events == TaskEvents::OneForAll && kept < output.size() - lineFeeds) std::abort();
    }
    return 0;
}
