// The command line of a process, as the free functions of ProcList.h give it.
#pragma once

#include <cstddef>

// Reads PID/cmdline below the open directory `rootDescriptor`, whose path `root` is for traces. As ::getCommandLine.
char* readCommandLine(int rootDescriptor, const char* root, int pid, char* buffer);
// What becomes of `size` (above 0) bytes of a command line: terminated, with a blank for each NUL in front of the last
// byte. `buffer` has room for one byte more.
void separateArguments(char* buffer, std::size_t size);
