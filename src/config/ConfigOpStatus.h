// The result of a run-time change of a configuration section.
#pragma once

enum CONFIG_TASK_RETURN_CODE : int {
    CONFIG_OK = 0,
    CONFIG_SECTION_EXISTS = 31,
    CONFIG_SECTION_NOT_FOUND = 32,
    CONFIG_NO_SECTION_NAME = 33,
    CONFIG_BAD_SECTION_ID = 34,
    CONFIG_NO_SECTION_ID = 35,
    CONFIG_NO_FILE = 37,
    CONFIG_NO_ARGUMENTS = 38,
};

struct ConfigOpStatus {
    CONFIG_TASK_RETURN_CODE code = CONFIG_OK;
    char text[200] = "";  // cut to 199 characters

    void set(CONFIG_TASK_RETURN_CODE newCode, const char* format, ...) __attribute__((format(printf, 3, 4)));
};
