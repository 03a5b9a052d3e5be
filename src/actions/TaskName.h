// Names of tasks are equal in any case (of ASCII letters).
#pragma once

#include <string>
#include <string_view>

// The name as a key of an index.
std::string foldedTaskName(std::string_view name);
