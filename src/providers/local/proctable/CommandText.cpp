#include "providers/local/proctable/CommandText.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "foundation/Trace.h"
#include "providers/local/proctable/FileDescriptor.h"
#include "providers/local/proctable/ProcList.h"

void separateArguments(char* buffer, std::size_t size) {
    std::replace(buffer, buffer + size - 1, '\0', ' ');
    if (buffer[size - 1] != '\0') buffer[size] = '\0';
}

ProcessPath::ProcessPath(const char* pid, const char* file) {
    const std::size_t length = std::min(std::strlen(pid), sizeof text - kLongestFile - 2);
    std::memcpy(text, pid, length);
    text[length] = '/';
    std::memcpy(text + length + 1, file, std::min(std::strlen(file) + 1, kLongestFile));
}

char* readCommandLine(int rootDescriptor, const char* root, const char* pid, char* buffer) {
    TRACE_MESSAGES();
    const ProcessPath path(pid, "cmdline");
    const FileDescriptor descriptor(::openat(rootDescriptor, path.text, O_RDONLY | O_CLOEXEC));
    if (!descriptor.isOpen()) {
        trace_detail("Error opeing %s/%s", root, path.text);
        return nullptr;
    }
    const ssize_t got = readOnce(descriptor.get(), buffer, kCommandLineSize - 1);
    if (got <= 0) {
        trace_detail("Error reading %s/%s", root, path.text);
        return nullptr;
    }
    separateArguments(buffer, static_cast<std::size_t>(got));
    return buffer;
}

char* getCommandLine(const procstat* process, char* buffer, const char* root) {
    const FileDescriptor directory(::open(root, O_PATH | O_DIRECTORY | O_CLOEXEC));
    return readCommandLine(directory.get(), root, std::to_string(process->pid).c_str(), buffer);
}

char* getFullName(const char* commandLine, char* buffer) {
    const std::size_t length = strnlen(commandLine, kFullNameSize - 1);
    const auto* blank = static_cast<const char*>(std::memchr(commandLine, ' ', length));
    const std::size_t taken = blank ? static_cast<std::size_t>(blank - commandLine) : length;
    std::memcpy(buffer, commandLine, taken);
    buffer[taken] = '\0';
    return buffer;
}

char* getBaseName(char* text) {
    TRACE_MESSAGES();
    const std::size_t length = std::strlen(text);
    auto* end = static_cast<char*>(std::memchr(text, ' ', length));
    if (!end) {
        trace_detail("...looking for baseName..reseting to end of line.");
        end = text + length;
    }
    while (end > text && end[-1] != '/') --end;
    return end;
}
