#include "actions/TaskLog.h"

#include <cstring>
#include <mutex>

#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

constexpr const char* kTraceVariable = "ZSB_ZTR1";
constexpr const char* kLogVariable = "ZSB_ZTR1_LOG";
constexpr const char* kPrefixVariable = "ZSB_VARPREFIX";

constinit std::mutex lock;

// With the lock held. Never destroyed: a task may end while the process does.
TaskLogState& state() {
    static TaskLogState* const made = new TaskLogState;
    return *made;
}

std::string environment(const char* name) {
    const char* value = ZSV1_GetEnv(name);
    return value ? value : "";
}

bool isQuoted(const TaskLogState& s) { return !s.ztr1_log_current_value.empty() && s.ztr1_log_current_value[0] == '"'; }

// Cuts the last two tokens of the base name: the program's name and the time of its start.
void cutUnderscores(std::string& base) {
    TRACE_FUNCTION();
    const std::size_t last = base.rfind('_');
    if (last == std::string::npos) {
        trace_detail("No '_' found, resetting base name.\n");
        return;
    }
    const std::size_t second = last == 0 ? std::string::npos : base.rfind('_', last - 1);
    if (second == std::string::npos) {
        trace_detail("No second '_' found, resetting base name.\n");
        return;
    }
    const std::string token = base.substr(second + 1, last - second - 1);
    base.resize(second);
    trace_detail("After underscore processing, last token is %s  ;  base name is %s\n", token.c_str(), base.c_str());
}

void takeOption(const std::string& options, const char* key, std::string& setting) {
    const std::string value = parseValue(options, key);
    if (!value.empty()) setting = value;
}

// With the lock held.
void readLogPath(TaskLogState& s) {
    TRACE_FUNCTION();
    const TaskLogState defaults;
    s.ztr1_log_current_value = environment(kLogVariable);
    s.ztr1_path_name = s.ztr1_base_name = s.ztr1_path_separator = "";
    s.ztr1_limit = defaults.ztr1_limit;
    s.ztr1_count = defaults.ztr1_count;
    s.ztr1_maxfiles = defaults.ztr1_maxfiles;
    const std::string& value = s.ztr1_log_current_value;
    if (value.empty()) {
        trace_detail("ztr1_log_current_value empty\n");
        trace_detail("Found no output file set\n");
        s.ztr1_path_name = environment("AGHBX_LOG_PATH");
        if (!s.ztr1_path_name.empty()) s.ztr1_path_separator = "/";
        trace_detail("logpath: %s\n", s.ztr1_path_name.c_str());
        return;
    }
    const std::size_t mark = value.find("-.");
    if (mark == std::string::npos) {
        trace_detail("No '-' found, resetting path name.\n");
        return;
    }
    const std::size_t start = isQuoted(s) ? 1 : 0;
    s.ztr1_base_name = value.substr(start, mark - start);
    const std::size_t slash = s.ztr1_base_name.find_last_of("\\/");
    if (slash != std::string::npos) {
        s.ztr1_path_name = s.ztr1_base_name.substr(0, slash);
        s.ztr1_path_separator = s.ztr1_base_name.substr(slash, 1);
        s.ztr1_base_name.erase(0, slash + 1);
    }
    cutUnderscores(s.ztr1_base_name);
    const std::string options = value.substr(mark);
    takeOption(options, "LIMIT", s.ztr1_limit);
    takeOption(options, "MAXFILES", s.ztr1_maxfiles);
    takeOption(options, "COUNT", s.ztr1_count);
}

// With the lock held.
std::string taskLogPath(const char* name, const char* value) {
    TRACE_FUNCTION();
    TaskLogState& s = state();
    readLogPath(s);
    if (!s.ztr1_log_current_value.empty() && s.ztr1_base_name.empty()) return "";
    std::string file = s.ztr1_base_name + (name ? name : "");
    const std::string var = environment("CDP_ACTION_LOG_APPEND_TIMESTAMP");
    trace_detail("var = %s\n", var.c_str());
    if (var == "YES" || var == "yes" || var == "Y" || var == "y") file += std::string("_") + (value ? value : "");
    trace_detail("newFileNameBase: %s\n", file.c_str());
    const std::string path = s.ztr1_path_name + s.ztr1_path_separator + file + ".log";
    trace_detail("leaving routine; newLogPath: %s\n", path.c_str());
    return path;
}

void readVariables(TaskLogState& s) {
    s.ztr1_log_current_value = environment(kLogVariable);
    s.ztr1_current_value = environment(kTraceVariable);
    s.ztr1_current_prefix_value = environment(kPrefixVariable);
}

// With the lock held.
void setLogVariables() {
    TRACE_FUNCTION();
    TaskLogState& s = state();
    readLogPath(s);
    if (!s.ztr1_base_name.empty() || !s.ztr1_path_name.empty()) {
        const std::string base = s.ztr1_path_name + s.ztr1_path_separator + s.ztr1_base_name + "(systask)";
        const char* quote = isQuoted(s) ? "\"" : "";
        const std::string log = quote + base + "_(sysutcstart)-.log INVENTORY=" + base + ".inv COUNT=" + s.ztr1_count +
                                " PRESERVE=0 LIMIT=" + s.ztr1_limit + " MAXFILES=" + s.ztr1_maxfiles + quote;
        setVar(kLogVariable, log.c_str());
    }
    if (!s.ztr1_current_value.empty()) setVar(kTraceVariable, s.ztr1_current_value.c_str());
    if (!s.ztr1_current_prefix_value.empty()) setVar(kPrefixVariable, s.ztr1_current_prefix_value.c_str());
}

}  // namespace

TaskLogState taskLogState() {
    const std::lock_guard<std::mutex> hold(lock);
    return state();
}

std::string parseValue(const std::string& options, const char* key) {
    const std::size_t found = options.find(key);
    if (found == std::string::npos) return "";
    std::size_t from = found + std::strlen(key);
    while (from < options.size() && options[from] == '=') ++from;
    std::string value = options.substr(from, options.find(' ', from) - from);
    if (!value.empty() && value.back() == '"') value.pop_back();
    return value;
}

void getLogPath(std::string& path) {
    const std::lock_guard<std::mutex> hold(lock);
    readLogPath(state());
    path = state().ztr1_path_name;
}

void setTaskLogEnvVariables() {
    const std::lock_guard<std::mutex> hold(lock);
    setLogVariables();
}

void setZsbZtr1EnvironmentVariable(const char* /*name*/) {
    const std::lock_guard<std::mutex> hold(lock);
    readVariables(state());
    setLogVariables();
}

std::string setTaskLogEnvVarsForBat(const char* name, const char* value) {
    const std::lock_guard<std::mutex> hold(lock);
    return taskLogPath(name, value);
}

void setEnvVarForBat(const char* variable, const char* name, const char* value) {
    TRACE_FUNCTION();
    const std::lock_guard<std::mutex> hold(lock);
    const std::string assignment = std::string(variable) + "=" + taskLogPath(name, value);
    trace_detail("calling putenv with value: %s\n", assignment.c_str());
    ZSV1_PutEnv(assignment.c_str());
}

void exportCollBinPath() {
    const std::lock_guard<std::mutex> hold(lock);
    const char* path = ZSV1_GetEnv("PATH");
    const char* collector = ZSV1_GetEnv("COLL_BINPATH");
    if (path && collector) ZSV1_PutEnv((std::string("PATH=") + collector + ":" + path).c_str());
}

void setVar(const char* name, const char* value) {
    TRACE_FUNCTION();
    if (const char* before = ZSV1_GetEnv(name)) {
        trace_detail("resetting the value of %s from %s to %s", name, before, value);
    } else {
        trace_detail("Adding env variable: %s\n", name);
    }
    ZSV1_PutEnv((std::string(name) + "=" + value).c_str());
}
