#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/Scratch.h"
#include "host/base/HostConfiguration.h"
#include "host/base/Paths.h"
#include "host/base/TestClock.h"
#include "host/base/TomlFile.h"
#include "platform/zpx.h"
#include "platform/zsb.h"

namespace almanac::host::test {
namespace {

TEST(Environment, AnswersRightWhoeverChangedIt) {
    std::map<std::string, std::string> model;
    unsigned seed = 3;
    for (int step = 0; step < 5000; ++step) {
        seed = seed * 1664525u + 1013904223u;
        const std::string name = "ALM_MIX" + std::to_string((seed >> 8) % 40), value = std::to_string(seed >> 20);
        switch ((seed >> 28) % 5) {
            case 0:
                ::setenv(name.c_str(), value.c_str(), 1);  // behind the back of the base services
                model[name] = value;
                break;
            case 1:
                ::unsetenv(name.c_str());
                model.erase(name);
                break;
            case 2:
                ZSV1_UnsetEnv(name.c_str());
                model.erase(name);
                break;
            default:
                ZSV1_PutEnv((name + "=" + value).c_str());
                model[name] = value;
        }
        const std::string asked = "ALM_MIX" + std::to_string((seed >> 14) % 40);
        const char* const answer = ZSV1_GetProcessEnv(asked.c_str());
        const char* const plain = ::getenv(asked.c_str());
        const auto expected = model.find(asked);
        ASSERT_EQ(answer != nullptr, expected != model.end()) << asked << " at step " << step;
        ASSERT_EQ(plain != nullptr, answer != nullptr);
        ASSERT_EQ(std::string(answer ? answer : "") + (plain ? plain : ""), answer ? expected->second + expected->second : "");
    }
    for (int i = 0; i < 40; ++i) ZSV1_UnsetEnv(("ALM_MIX" + std::to_string(i)).c_str());
}

TEST(Environment, PutAndReadOnManyThreadsKeepsOldTexts) {
    ASSERT_EQ(ZSV1_PutEnv("ALM_T_OLD=first"), 0);
    const char* const old = ZSV1_GetEnv("ALM_T_OLD");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 300; ++i) {
                const std::string name = "ALM_T_" + std::to_string(t) + "_" + std::to_string(i % 50);
                ZSV1_PutEnv((name + "=" + std::to_string(i)).c_str());
                const char* const value = ZSV1_GetEnv(name.c_str());
                if (!value || std::to_string(i) != value) std::abort();
                ZSV1_PutEnv(("ALM_T_OLD=" + std::to_string(i)).c_str());
                char** const copy = ZSV1_CopyEnv();
                for (char** each = copy; *each; ++each) {
                    if (!std::strchr(*each, '=')) std::abort();
                }
                std::free(copy);
                if (i % 7 == 0) ZSV1_UnsetEnv(name.c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_STREQ(old, "first");
    EXPECT_STRNE(ZSV1_GetEnv("ALM_T_OLD"), "first");
}

TEST(Environment, RefusesWhatIsNoAssignment) {
    EXPECT_EQ(ZSV1_PutEnv("ALM_NO_VALUE"), -1);  // putenv(3) would take the variable out
    EXPECT_EQ(ZSV1_PutEnv("=x"), -1);
    EXPECT_EQ(ZSV1_PutEnv(nullptr), -1);
    EXPECT_EQ(ZSV1_UnsetEnv(""), -1);
    EXPECT_EQ(ZSV1_GetEnv("A=B"), nullptr);
    char text[] = "ALM_COPIED=1";
    EXPECT_EQ(ZSV1_PutEnv(text), 0);
    text[11] = '2';
    EXPECT_STREQ(ZSV1_GetProcessEnv("ALM_COPIED"), "1");
}

class HostFile : public ::testing::Test {
  protected:
    HostFile() : config_("ALMANAC_CONFIG", scratch_.path("almanac.toml")) { forgetHostConfiguration(); }
    ~HostFile() override { forgetHostConfiguration(); }
    void write(const std::string& text) { writeFile(scratch_.path("almanac.toml"), text); }

    Scratch scratch_;
    Variable config_;
};

TEST_F(HostFile, StandsBehindTheEnvironment) {
    write("[environment]\nALM_A = \"text\"\nALM_B = 7\nALM_C = true\nALM_D = 1.50\nALM_E = \"file\"\n");
    const Variable own("ALM_E", "");
    EXPECT_STREQ(ZSV1_GetEnv("ALM_A"), "text");
    EXPECT_STREQ(ZSV1_GetEnv("ALM_B"), "7");
    EXPECT_STREQ(ZSV1_GetEnv("ALM_C"), "true");
    EXPECT_STREQ(ZSV1_GetEnv("ALM_D"), "1.50");
    EXPECT_STREQ(ZSV1_GetEnv("ALM_E"), "");  // set to nothing is set
    EXPECT_EQ(ZSV1_GetEnv("ALM_F"), nullptr);
    EXPECT_EQ(ZSV1_GetProcessEnv("ALM_A"), nullptr);
}

TEST_F(HostFile, BrokenFileIsToldOnceWithItsPlaceAndIgnored) {
    write("[environment]\nALM_A = \"x\"\nALM_A = \"y\"\n");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ZSV1_GetEnv("ALM_A"), nullptr);
    EXPECT_EQ(ZSV1_GetEnv("ALM_B"), nullptr);
    const std::string told = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.rfind(scratch_.path("almanac.toml") + ":3:", 0), 0u) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1);
    std::string error;
    EXPECT_FALSE(loadHostConfiguration(&error));
    EXPECT_EQ(error + "\n", told);
}

TEST_F(HostFile, RefusesAValueThatIsNoVariable) {
    write("[environment]\nA = 1\nB = [1]\n");
    std::string error;
    EXPECT_FALSE(loadHostConfiguration(&error));
    EXPECT_NE(error.find(":3:5: environment.B"), std::string::npos) << error;
    EXPECT_EQ(ZSV1_GetEnv("A"), nullptr);
}

TEST(TomlFile, BoundsWhatItReads) {
    TomlValue root;
    std::string error;
    EXPECT_FALSE(parseToml("a = " + std::string(10000, '[') + std::string(10000, ']'), "f", &root, &error));
    EXPECT_EQ(error, "f:1:37: nested too deeply");
    EXPECT_TRUE(parseToml("a = '[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[' # [[[[[[[[[[[[[[[", "f", &root,
                          &error));
    EXPECT_FALSE(parseToml("a = 1\nb = 'x\xFC'\n", "f", &root, &error));
    EXPECT_EQ(error, "f:2:7: no UTF-8 text");
    EXPECT_FALSE(parseToml("\na = \"" + std::string(kTomlLineLimit, 'x') + "\"\n", "f", &root, &error));
    EXPECT_EQ(error.rfind("f:2:1: longer than", 0), 0u) << error;
    EXPECT_FALSE(parseToml(std::string(kTomlSizeLimit + 1, '\n'), "f", &root, &error));
    EXPECT_TRUE(parseToml("n = 99999999999999999999\n", "f", &root, &error));
    EXPECT_EQ(root.member("n")->text, "99999999999999999999");  // not cut to 64 bits
    const Scratch scratch;
    ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(readTomlFile(scratch.path("fifo"), &root, &error), TomlRead::Broken);  // and does not wait
    EXPECT_EQ(readTomlFile(scratch.path("none"), &root, &error), TomlRead::Missing);
}

TEST(Paths, DataDirectoryIsPrivate) {
    const Scratch scratch;
    const Variable chosen("ALMANAC_DATA_DIR", scratch.path("a/b/") + "/");
    std::string error;
    EXPECT_EQ(dataDirectory(), scratch.path("a/b"));
    EXPECT_TRUE(prepareDataDirectory(&error)) << error;
    EXPECT_EQ(modeOf(scratch.path("a/b")), 0700u);
    ::chmod(scratch.path("a/b").c_str(), 0770);
    EXPECT_FALSE(prepareDataDirectory(&error));
    ::rmdir(scratch.path("a/b").c_str());
    writeFile(scratch.path("a/b"), "");
    EXPECT_FALSE(prepareDataDirectory(&error));
    EXPECT_NE(error.find("no directory"), std::string::npos) << error;
}

TEST(Clock, WallStepLeavesTheMonotonicClockAlone) {
    const testclock::Guard frozen;
    timespec wall{}, steady{}, later{};
    ZSV1_GetTime(&wall);
    ZSV1_GetMonotonicTime(&steady);
    testclock::advanceWall(-std::chrono::hours(1));
    ZSV1_GetTime(&later);
    EXPECT_EQ(later.tv_sec, wall.tv_sec - 3600);
    ZSV1_GetMonotonicTime(&later);
    EXPECT_EQ(later.tv_sec, steady.tv_sec);
    EXPECT_EQ(later.tv_nsec, steady.tv_nsec);
    testclock::advance(std::chrono::milliseconds(1500));
    ZSV1_GetMonotonicTime(&later);
    EXPECT_EQ((later.tv_sec - steady.tv_sec) * 1000 + (later.tv_nsec - steady.tv_nsec) / 1000000, 1500);
}

TEST(Clock, SleepWaitsOnTheVirtualClock) {
    testclock::freeze();
    std::atomic<int> awake{0};
    std::thread shorter([&] {
        ZSV1_MilliSleep(900);
        ++awake;
    });
    std::thread longer([&] {
        ZSV1_Sleep(3600);
        ++awake;
    });
    while (testclock::sleepers() < 2) std::this_thread::yield();
    testclock::advanceMonotonic(std::chrono::milliseconds(899));
    testclock::advanceWall(std::chrono::hours(2));
    EXPECT_EQ(testclock::sleepers(), 2);
    testclock::advanceMonotonic(std::chrono::milliseconds(1));
    shorter.join();
    EXPECT_EQ(awake.load(), 1);
    testclock::release();
    longer.join();
    EXPECT_EQ(awake.load(), 2);
}

TEST(Locks, AreRecursiveAndKnowTheirHolder) {
    ZSV1_Lock lock{};
    EXPECT_EQ(ZSV1_GetLock(&lock), -1);
    ASSERT_EQ(ZSV1_InitializeLock(&lock), 0);
    EXPECT_EQ(ZSV1_GetLock(&lock), 0);
    EXPECT_EQ(ZSV1_GetLock(&lock), 0);
    std::thread([&] { EXPECT_EQ(ZSV1_ReleaseLock(&lock), -1); }).join();
    EXPECT_EQ(ZSV1_ReleaseLock(&lock), 0);
    EXPECT_EQ(ZSV1_DestroyLock(&lock), -1);  // held
    int counted = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 200; ++k) {
                ZSV1_GetLock(&lock);
                ++counted;
                ZSV1_ReleaseLock(&lock);
            }
        });
    }
    EXPECT_EQ(counted, 0);
    EXPECT_EQ(ZSV1_ReleaseLock(&lock), 0);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counted, 600);
    EXPECT_EQ(ZSV1_ReleaseLock(&lock), -1);
    EXPECT_EQ(ZSV1_DestroyLock(&lock), 0);
    EXPECT_EQ(ZSV1_GetLock(&lock), -1);
}

TEST(Once, RunsOnceAndTheOthersWaitForItsEnd) {
    static ZSV1_Once once;
    struct State {
        std::atomic<int> runs{0};
        int result = 0;  // plain: the wait has to order it
    } state;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            ZSV1_InitializeOnce(
                &once,
                [](void* argument) {
                    auto* const mine = static_cast<State*>(argument);
                    ++mine->runs;
                    ZSV1_MilliSleep(5);
                    mine->result = 42;
                },
                &state);
            EXPECT_EQ(state.result, 42);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(state.runs.load(), 1);
}

TEST(Services, TextCaseLeavesOtherBytes) {
    char text[] = "aZ\xC3\xA4[@`{";
    ZSV1_ToUpper(text);
    EXPECT_STREQ(text, "AZ\xC3\xA4[@`{");
    ZSV1_ToLower(text);
    EXPECT_STREQ(text, "az\xC3\xA4[@`{");
    EXPECT_STREQ(ZSG1_SignalName(SIGTERM), "SIGTERM");
    EXPECT_STREQ(ZSG1_SignalName(40), "signal 40");
}

// A reader that went away must not end the process, and a child must still die of it as usual.
TEST(Services, StartMakesABrokenPipeAFailedWrite) {
    ASSERT_EQ(ZSV1_Main(nullptr, nullptr, "test"), 0);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    ::close(ends[1]);
    EXPECT_EQ(std::system("kill -PIPE $$; exit 3") & 0x7F, SIGPIPE);
}

class Companion : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* const bin = ZSV1_GetProcessEnv("ALMANAC_BIN_DIR");
        const std::string folder =
            bin ? bin : std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
        library_ = ::dlopen((folder + "/libzbtudp.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << ::dlerror();
    }
    void TearDown() override {
        if (library_) ::dlclose(library_);
    }
    template <class Entry>
    Entry* find(const char* name) {
        auto* const entry = reinterpret_cast<Entry*>(::dlsym(library_, name));
        EXPECT_NE(entry, nullptr) << name;
        return entry;
    }
    void* library_ = nullptr;
};

#define COMPANION(entry) find<entry##_t>(#entry)

TEST_F(Companion, ResolvesAddressesOfBothFamilies) {
    auto* const isAddress = COMPANION(ZPX0_IsThisAddressString);
    auto* const toAddress = COMPANION(ZPX0_InitializeSocketAddress);
    auto* const toText = COMPANION(ZPX0_ntoa);
    EXPECT_EQ(isAddress("127.0.0.1"), ZPX_IPV4);
    EXPECT_EQ(isAddress("::1"), ZPX_IPV6);
    EXPECT_EQ(isAddress("localhost"), ZPX_NO_FAMILY);
    EXPECT_EQ(isAddress(nullptr), ZPX_NO_FAMILY);
    ZPX_SockAddr address{};
    ASSERT_EQ(toAddress("127.1.2.3", ZPX_IPV4, 161, 17, 2, 0, 0, &address), 1);
    const unsigned char v4[] = {0, 161, 127, 1, 2, 3};
    EXPECT_EQ(std::memcmp(address.bytes + 2, v4, sizeof v4), 0);
    char text[46];
    EXPECT_STREQ(toText(&address, text, sizeof text), "127.1.2.3");
    EXPECT_EQ(toText(&address, text, 5), nullptr);
    EXPECT_EQ(toAddress("127.1.2.3", ZPX_IPV6, 161, 17, 2, 0, 0, &address), 0);
    ASSERT_EQ(toAddress("fe80::12", ZPX_IPV6, 162, 17, 2, 0, 0, &address), 1);
    EXPECT_EQ(address.bytes[8], 0xFE);
    EXPECT_EQ(address.bytes[23], 0x12);
    EXPECT_STREQ(toText(&address, text, sizeof text), "fe80::12");
    EXPECT_EQ(toAddress("no.such.host.invalid", ZPX_IPV4, 1, 17, 2, 0, 0, &address), 0);
    EXPECT_EQ(toText(nullptr, text, sizeof text), nullptr);
}

TEST_F(Companion, GivesTheRest) {
    EXPECT_EQ(COMPANION(ZPX0_IsThisFullyQualifiedName)("/a"), 1);
    EXPECT_EQ(COMPANION(ZPX0_IsThisFullyQualifiedName)("a/b"), 0);
    EXPECT_STRNE(COMPANION(ZPX0_LocalHostNameString)(), "");
    const int family = COMPANION(ZPX0_UseDefaultIPfamily)();
    EXPECT_TRUE(family == ZPX_IPV4 || family == ZPX_IPV6);
    char stamp[18] = "................!";
    COMPANION(ZPX0_GetVelmarTime)(stamp);
    EXPECT_EQ(std::strspn(stamp, "0123456789"), 16u);
    EXPECT_EQ(stamp[0], '1');
    EXPECT_EQ(stamp[16], '\0');
    ZPX_SockAddr address{};
    char name[256] = "";
    ASSERT_EQ(COMPANION(ZPX0_ConvertNameToAddr)("127.0.0.1", ZPX_IPV4, &address), 1);
    EXPECT_EQ(COMPANION(ZPX0_ConvertAddrToName)(&address, name, sizeof name), 1);
    EXPECT_STRNE(name, "");
    std::atomic<bool> ran{false};
    ASSERT_EQ(COMPANION(ZPX0_CreateThread)(
                  [](void* flag) { static_cast<std::atomic<bool>*>(flag)->store(true); }, &ran),
              1);
    while (!ran.load()) std::this_thread::yield();
    ZSV1_MilliSleep(20);  // the thread is inside the library, which is closed next
}

}  // namespace
}  // namespace almanac::host::test
