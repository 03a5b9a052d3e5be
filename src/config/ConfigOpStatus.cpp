#include "config/ConfigOpStatus.h"

#include <cstdarg>
#include <cstdio>

void ConfigOpStatus::set(CONFIG_TASK_RETURN_CODE newCode, const char* format, ...) {
    code = newCode;
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
}
