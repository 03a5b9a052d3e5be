// The commands of `almanac`. Each returns the process's exit status: 0 done, 1 it failed, 2 wrong usage, 78 a fault of
// the configuration. Data goes to standard output, messages to standard error.
#pragma once

#include <string>
#include <vector>

namespace almanac::cli {

enum ExitStatus { kDone = 0, kFailed = 1, kUsage = 2, kConfiguration = 78 };

// The API's socket: ALMANAC_SOCKET, else in the data directory.
std::string apiSocket();
// A program that lies beside this one, else its bare name (found by PATH).
std::string siblingProgram(const char* name);
// "almanac: …" on standard error.
void complain(const std::string& text);

struct RunOptions {
    std::string file;
    std::string instance;
    bool daemon = false;
    bool check = true;
    std::vector<std::string> settings;  // NAME=VALUE
};
int runAgent(const RunOptions& options);
int stopAgent();

int checkFile(const std::string& file);
int listCorrections();

struct EvalOptions {
    std::string formula;
    std::string type;
    int repeat = 0;                     // 0: as often as there are values
    std::vector<std::string> settings;  // NAME=VALUE
};
int evaluateFormula(const EvalOptions& options);

struct ShowOptions {
    std::string table;
    std::string filter;
    std::string columns;
    std::vector<std::string> nodes;  // managed systems; empty or "*": all
    std::string output = "table";
    std::string watch;  // "2s", "500ms", "1m"; empty: once
    long limit = 0;
    bool wide = false;
};
int showTable(const ShowOptions& options);
int listTables(const std::string& output);
int listNodes(const std::string& output);
int showStatus(const std::string& output);

struct ActOptions {
    std::string task;                     // the name of a declared action
    std::vector<std::string> parameters;  // NAME=VALUE
    std::string command;                  // or the text of a command
    std::string node;                     // the managed system it is for; empty: the agent itself
    std::string deadline;                 // "30s"; empty: a minute
    std::string output = "lines";         // lines, table or json
};
// 0 if the action's return code is 0.
int runAction(const ActOptions& options);
int listActions(const std::string& output);
int traceCommand(const std::string& spec);
// Reads the value from standard input (without echo from a terminal), writes the encrypted text.
int encryptValue();

// Milliseconds of "2s", "500ms", "1m" or "3" (seconds); -1 if it is none of these or below 100 ms.
long parseDuration(const std::string& text);

}  // namespace almanac::cli
