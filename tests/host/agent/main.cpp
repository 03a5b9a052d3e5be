// An agent without a core, for tests of the assembled host: a process that runs zhbmain over fake tables.
// usage: host_agent [hang-loader] [hang-end]; the tables are SMALL (3 rows), BIG (10,000 rows) and HUNG.
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "host/FakeAgent.h"
#include "platform/zsb.h"

using almanac::host::test::FakeRequest;
using almanac::host::test::FakeRow;
using almanac::host::test::FakeTable;

namespace {

bool hangLoader = false, hangEnd = false;

[[noreturn]] void hang() {
    for (;;) pause();
}

int rows(FakeRequest& request, int count) {
    for (int i = 0; i < count; ++i) {
        FakeRow row;
        row.name = "row" + std::to_string(i);
        row.cpu = i;
        row.size = i * 10000000000LL;
        row.load = i * 5;
        row.small = static_cast<short>(-i);
        if (request.add(row) == 1) break;
    }
    return 0;
}

int load() {
    if (hangLoader) hang();
    RemoteManager::RegisterClass(new FakeTable("SMALL", [](FakeRequest& r) { return rows(r, 3); }));
    RemoteManager::RegisterClass(new FakeTable("BIG", [](FakeRequest& r) { return rows(r, 10000); }));
    RemoteManager::RegisterClass(new FakeTable("HUNG", [](FakeRequest&) -> int { hang(); }));
    return 0;
}

int command(AghbxAutomationCapsule* capsule) {
    capsule->SetMessage(capsule->Command());
    capsule->SetResults(3);
    return capsule->Request()->FinishedAutomationCommand(capsule);
}

void waitForSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    int signal = 0;
    sigwait(&set, &signal);
    HBX_Shutdown(1);
    _exit(0);
}

}  // namespace

extern "C" void AgTerminate() {
    HBX_Shutdown(1);
    if (hangEnd) hang();
    std::fprintf(stderr, "terminated, %d inside\n", HBX_RequestsRunning());
}

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        hangLoader = hangLoader || std::string_view(argv[i]) == "hang-loader";
        hangEnd = hangEnd || std::string_view(argv[i]) == "hang-end";
    }
    int count = 1;
    ZSV1_Main(&count, argv, "host_agent");
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread(waitForSignal).detach();
    HBX_SetNodeType("FK");
    HBX_SetAffinity("%FAKE");
    HBX_RegisterAgentLoader(load);
    HBX_RegisterCommandCallback("*", command);
    const int code = zhbmain(1, argv);
    if (code != 0) _exit(code);
    if (HBX_QueryShutdown()) _exit(0);
    return code;
}
