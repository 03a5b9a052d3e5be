// almanac-check: tells every problem of a reference file, and evaluates formulas. The almanac command runs it for
// `almanac check`, `almanac corrections` and `almanac eval`.
//
// usage: almanac-check FILE | --corrections | --eval FORMULA TYPE COLLECTIONS [NAME=VALUE...]
// Problems go to standard output. Exit status: 0 none or warnings only, 1 errors, 2 wrong usage, 78 unreadable file.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/Corrections.h"
#include "runtime/check/FormulaEval.h"
#include "runtime/check/ReferenceCheck.h"

namespace {

enum { kOk = 0, kErrors = 1, kUsage = 2, kConfiguration = 78 };

int listCorrections() {
    for (const Correction* c = corrections(); c->name; ++c) std::printf("%-24s %s\n", c->name, c->changes);
    return kOk;
}

int check(const char* path) {
    struct stat info;
    std::ifstream file(path, std::ios::binary);
    if (stat(path, &info) != 0 || !file || S_ISDIR(info.st_mode)) {
        const int code = errno == 0 ? EISDIR : errno;
        std::fprintf(stderr, "almanac-check: %s: %s\n", path, std::strerror(S_ISDIR(info.st_mode) ? EISDIR : code));
        return kConfiguration;
    }
    std::ostringstream buffer;
    buffer << file.rdbuf();
    const std::string text = buffer.str();
    int errors = 0;
    int warnings = 0;
    for (const Problem& p : checkReferenceText(text)) {
        ++(p.severity == Problem::Error ? errors : warnings);
        std::fputs(formatProblem(path, text, p).c_str(), stdout);
    }
    std::fflush(stdout);
    if (errors + warnings == 0) {
        std::fprintf(stderr, "%s: no problems\n", path);
    } else {
        std::fprintf(stderr, "%s: %d error%s, %d warning%s\n", path, errors, errors == 1 ? "" : "s", warnings,
                     warnings == 1 ? "" : "s");
    }
    return errors > 0 ? kErrors : kOk;
}

}  // namespace

int main(int argc, char** argv) {
    setenv("ZSB_ZTR1", "NONE", 0);  // what the agent would trace of a fault is told as a problem, with its place
    if (argc > 4 && std::strcmp(argv[1], "--eval") == 0) return evaluateAtPrompt(argc - 2, argv + 2);
    if (argc != 2) {
        std::fprintf(stderr, "usage: almanac-check FILE | --corrections | --eval FORMULA TYPE COLLECTIONS [NAME=VALUE...]\n");
        return kUsage;
    }
    return std::strcmp(argv[1], "--corrections") == 0 ? listCorrections() : check(argv[1]);
}
