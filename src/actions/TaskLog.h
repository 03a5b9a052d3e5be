// The trace log settings that tasks and client programs inherit, so that each writes a log of its own.
//
// They are read from ZSB_ZTR1_LOG, whose form is the trace log's: an optional double quote, a path and base name, "-."
// and a suffix, then options such as "INVENTORY=… COUNT=03 LIMIT=1 PRESERVE=0 MAXFILES=10". All operations may be
// called from any thread; one lock makes each of them whole.
#pragma once

#include <string>

struct TaskLogState {
    std::string ztr1_log_current_value;     // ZSB_ZTR1_LOG as last read
    std::string ztr1_path_name;             // its directory
    std::string ztr1_base_name;             // the file's name up to its last two underscores
    std::string ztr1_path_separator;        // what stood between the two
    std::string ztr1_limit = "1";
    std::string ztr1_count = "03";
    std::string ztr1_maxfiles = "10";
    std::string ztr1_current_value;         // ZSB_ZTR1
    std::string ztr1_current_prefix_value;  // ZSB_VARPREFIX
};

// A copy of the state that the operations below work on.
TaskLogState taskLogState();

// Takes ZSB_ZTR1_LOG apart. `path` becomes its directory, or that of AGHBX_LOG_PATH where no log is set, or empty.
void getLogPath(std::string& path);

// Points ZSB_ZTR1_LOG at a log for tasks ("(systask)" behind the base name) and puts it, ZSB_ZTR1 and ZSB_VARPREFIX
// into the environment. Variables that had no value, and a log whose place is unknown, are left alone.
void setTaskLogEnvVariables();

// Reads the three variables, then setTaskLogEnvVariables(). The name of the settings' file plays no part.
void setZsbZtr1EnvironmentVariable(const char* name);

// The path of a task's log: directory, base name, `name`, with CDP_ACTION_LOG_APPEND_TIMESTAMP ("YES", "yes", "Y", "y")
// also "_" and `value`, and ".log". Empty if the trace log has no "-.".
std::string setTaskLogEnvVarsForBat(const char* name, const char* value);

// Puts that path into the environment under the name `variable`.
void setEnvVarForBat(const char* variable, const char* name, const char* value);

// Puts COLL_BINPATH in front of PATH, if both are set.
void exportCollBinPath();

// Puts a variable into the environment.
void setVar(const char* name, const char* value);

// The text behind the key up to the next blank, without leading '=' and a closing quote; empty if the key is not there.
std::string parseValue(const std::string& options, const char* key);
