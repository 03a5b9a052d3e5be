// The command line of a process, as the free functions of ProcList.h give it.
#pragma once

#include <cstddef>

// "PID/FILE", for any name of a directory entry and files of up to 15 bytes.
struct ProcessPath {
    ProcessPath(const char* pid, const char* file);
    static constexpr std::size_t kLongestFile = 16;
    char text[256 + 1 + kLongestFile];
};

// Reads PID/cmdline below the open directory `rootDescriptor`, whose path `root` is for traces. As ::getCommandLine.
char* readCommandLine(int rootDescriptor, const char* root, const char* pid, char* buffer);
// What becomes of `size` (above 0) bytes of a command line: terminated, with a blank for each NUL in front of the last
// byte. `buffer` has room for one byte more.
void separateArguments(char* buffer, std::size_t size);
