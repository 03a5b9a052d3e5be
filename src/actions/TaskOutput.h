// The output of a task as entries of a result: a pure function of its bytes.
#pragma once

#include <cstddef>
#include <string_view>

#include "foundation/List.h"

// A longer line is divided, at the start of a UTF-8 character, and its rest counts as a line of its own.
inline constexpr std::size_t kLongestTaskLine = 2048;  // bytes

// Lines that are entries of their own.
inline constexpr int kMostTaskLines = 1'000'000;

enum class TaskEvents { OneForEachLine, OneForAll };

// Adds malloc'd texts to both lists: for each line its number, from 1, and the line; or, for all lines, the number of the
// last one and the lines with line feeds between them. An empty line is a line. Nothing for an empty output.
// False if there are more than kMostTaskLines entries: the rest is left out.
bool readTaskOutput(std::string_view output, TaskEvents events, List* instances, List* lines);
