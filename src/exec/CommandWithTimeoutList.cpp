#include "exec/CommandWithTimeoutList.h"

#include <memory>

#include "foundation/Trace.h"

void CommandWithTimeoutList::cleanupFinishedCommands() {
    TRACE_FUNCTION();
    int count = getCount();
    trace_detail("%d outstanding objects", count);
    for (int i = 0; i < count;) {
        auto* command = static_cast<CommandWithTimeout*>(get(i));
        const _CWTStatus status = command->getStatus();
        if (status != CWT_FAILED && status != CWT_COMPLETE) {
            ++i;
            continue;
        }
        trace_detail("Cleaning up CommandWithTimeout object that completed after timeout, cmd = %s, index = %d",
                     command->getCmd(), i);
        command->join();
        remove(i);
        --count;
        delete command;
    }
}

bool CommandWithTimeoutList::tooManyOutstanding(const char* command) const {
    TRACE_FUNCTION();
    if (getCount() <= kMostOutstanding) return false;
    trace_error(
        "There are %d outstanding invocations of command \"%s\" which have not returned.  Disabling data collection for "
        "this instance.  Collection will resume if these commands eventually complete.",
        getCount(), command);
    return true;
}

void CommandWithTimeoutList::letGoOfAll() {
    while (void* command = pop()) CommandWithTimeout::letGo(static_cast<CommandWithTimeout*>(command));
}
