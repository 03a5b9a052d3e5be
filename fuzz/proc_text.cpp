// Any bytes as the files of a process. Lines of `stat`, `statm`, `status` and `io` are held against sscanf with the same
// formats: the first byte says which.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../tests/providers/local/proctable/ScanfModel.h"
#include "host/base/Trace.h"
#include "providers/local/proctable/CommandText.h"
#include "providers/local/proctable/ProcText.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    almanac::host::configureTrace("NONE", nullptr);
    return 0;
}

namespace {

void check(bool same) {
    if (!same) std::abort();
}

void checkCommandLine(const std::string& bytes) {
    if (bytes.empty() || bytes.size() >= kCommandLineSize) return;
    char buffer[kCommandLineSize];
    char name[kFullNameSize];
    std::memcpy(buffer, bytes.data(), bytes.size());
    separateArguments(buffer, bytes.size());
    check(std::strlen(buffer) <= bytes.size() && std::strlen(buffer) + 1 >= bytes.size());
    const std::size_t length = std::strlen(getFullName(buffer, name));
    check(std::strchr(name, ' ') == nullptr && std::strncmp(name, buffer, length) == 0);
    const char* base = getBaseName(name);
    check(base >= name && base <= name + length && std::strchr(base, '/') == nullptr);
    check(base == name || base[-1] == '/');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace almanac::test;
    if (size < 1) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    procstat ours = patternRecord(), model = patternRecord();
    switch (data[0] % 8) {
        case 0:
            check((parseStat(text, StatRule::Tail, &ours) == nullptr) == modelStat(text, &model));
            check(sameFigures(ours, model));
            break;
        case 1:
            check((parseStatM(text, &ours) == nullptr) == modelStatM(text, &model));
            check(sameFigures(ours, model));
            break;
        case 2:
            check((parseStatus(text, StatusRule::Order, &ours) == nullptr) == modelStatus(text, &model));
            check(sameFigures(ours, model));
            break;
        case 3:
            parseIO(text, IoRule::Narrow, &ours);
            modelIO(text, &model);
            check(sameFigures(ours, model));
            break;
        case 4:
            parseStat(text, StatRule::Fields, &ours);
            check(std::memchr(ours.cmd, '\0', sizeof ours.cmd) != nullptr);
            break;
        case 5:
            parseStatus(text, StatusRule::Names, &ours);
            check(std::memchr(ours.cmd, '\0', sizeof ours.cmd) != nullptr);
            break;
        case 6:
            parseIO(text, IoRule::Wide, &ours);
            break;
        default:
            unsigned long seconds = 0;
            parseUptime(text.c_str(), &seconds);
            checkCommandLine(text);
    }
    return 0;
}
