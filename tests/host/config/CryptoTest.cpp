#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <vector>

#include "host/Scratch.h"
#include "host/base/HostTrace.h"
#include "host/base/Trace.h"
#include "platform/zcp.h"

namespace almanac::host::test {
namespace {

const std::string kMarker = "{AES256:keyfile:a}";

class Crypto : public ::testing::Test {
  protected:
    Crypto() : data_("ALMANAC_DATA_DIR", scratch_.path("data")) {
        configureTrace("NONE", nullptr);  // refusals are tried by the hundred
    }
    ~Crypto() override { configureTrace("ERROR", nullptr); }

    std::string encrypt(const std::string& plain) {
        char* out = nullptr;
        status_ = ZCP_Encrypt(plain.c_str(), "AES256", "keyfile", &out);
        const std::string text = out ? out : "";
        ZCP_Free(out);
        return text;
    }
    std::string decrypt(const std::string& value) {
        char* out = nullptr;
        int length = -1;
        status_ = ZCP_Decrypt(value.c_str(), &out, &length);
        EXPECT_EQ(out == nullptr, status_ != ZCP_OK);
        const std::string text = out ? std::string(out, static_cast<std::size_t>(length)) : "";
        ZCP_Free(out);
        return text;
    }
    std::string keyFile() const { return scratch_.path("data/key"); }

    Scratch scratch_;
    Variable data_;
    int status_ = -1;
};

TEST_F(Crypto, RoundTripsWithAFreshNonceEachTime) {
    std::set<std::string> seen;
    for (const std::string& plain :
         {std::string("geheim"), std::string(), std::string(5000, 'x'), std::string("\xFF\x01")}) {
        const std::string value = encrypt(plain);
        ASSERT_EQ(status_, ZCP_OK);
        EXPECT_EQ(value.rfind(kMarker, 0), 0u);
        EXPECT_EQ(decrypt(value), plain);
        EXPECT_EQ(status_, ZCP_OK);
        for (int i = 0; i < 50; ++i) EXPECT_TRUE(seen.insert(encrypt(plain)).second);
    }
    EXPECT_EQ(modeOf(keyFile()), 0600u);
    EXPECT_EQ(modeOf(scratch_.path("data")), 0700u);
}

TEST_F(Crypto, EveryChangedByteAndEveryCutFailsAlike) {
    const std::string value = encrypt("a secret value");
    for (std::size_t i = 0; i < value.size(); ++i) {
        for (const int flip : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80}) {
            std::string changed = value;
            changed[i] = static_cast<char>(changed[i] ^ flip);
            decrypt(changed);
            EXPECT_EQ(status_, ZCP_BAD_TEXT) << "byte " << i << " bit " << flip;
        }
        decrypt(value.substr(0, i));
        EXPECT_EQ(status_, ZCP_BAD_TEXT) << "cut at " << i;
    }
    for (const char* tail : {"=", "====", "A", " ", "\n", "AAAA"}) {
        decrypt(value + tail);
        EXPECT_EQ(status_, ZCP_BAD_TEXT) << tail;
    }
    ASSERT_EQ(::unlink(keyFile().c_str()), 0);
    encrypt("makes another key");
    decrypt(value);
    EXPECT_EQ(status_, ZCP_BAD_TEXT);
}

TEST_F(Crypto, RefusesAKeyFileThatIsNotPrivate) {
    const std::string value = encrypt("x");
    for (const unsigned mode : {0640u, 0604u, 0620u, 0601u}) {
        ::chmod(keyFile().c_str(), mode);
        decrypt(value);
        EXPECT_EQ(status_, ZCP_NO_KEY) << std::oct << mode;
        encrypt("x");
        EXPECT_EQ(status_, ZCP_NO_KEY);
    }
    ::chmod(keyFile().c_str(), 0600);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(keyFile().c_str(), 65534, 65534), 0);
        decrypt(value);
        EXPECT_EQ(status_, ZCP_NO_KEY);
        ASSERT_EQ(::chown(keyFile().c_str(), 0, 0), 0);
    }
    decrypt(value);
    EXPECT_EQ(status_, ZCP_OK);
    ASSERT_EQ(::rename(keyFile().c_str(), scratch_.path("data/elsewhere").c_str()), 0);
    decrypt(value);
    EXPECT_EQ(status_, ZCP_NO_KEY);  // decrypting makes no key
    EXPECT_FALSE(std::filesystem::exists(keyFile()));
    ASSERT_EQ(::symlink("elsewhere", keyFile().c_str()), 0);
    decrypt(value);
    EXPECT_EQ(status_, ZCP_NO_KEY);
    ::unlink(keyFile().c_str());
    writeFile(keyFile(), "short");
    ::chmod(keyFile().c_str(), 0600);
    encrypt("x");
    EXPECT_EQ(status_, ZCP_NO_KEY);
}

TEST_F(Crypto, ProcessesAtOnceAgreeOnOneKey) {
    constexpr int kProcesses = 6;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    for (int i = 0; i < kProcesses; ++i) {
        if (::fork() == 0) {
            const std::string value = encrypt("same") + "\n";  // below PIPE_BUF: written in one piece
            ::_exit(::write(ends[1], value.data(), value.size()) > 0 ? 0 : 1);
        }
    }
    ::close(ends[1]);
    std::string all;
    char buffer[4096];
    for (ssize_t got; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
        all.append(buffer, static_cast<std::size_t>(got));
    ::close(ends[0]);
    while (::wait(nullptr) > 0) {
    }
    std::istringstream lines(all);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) EXPECT_EQ(decrypt(line), "same");
    EXPECT_EQ(count, kProcesses);
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.path("data")))
        files += entry.exists();
    EXPECT_EQ(files, 1) << "parts of keys left behind";
}

TEST_F(Crypto, KnowsOneSchemeAndKeepsSecretsOutOfTraces) {
    char* out = nullptr;
    EXPECT_EQ(ZCP_Encrypt("x", "AES128", "keyfile", &out), ZCP_BAD_SCHEME);
    EXPECT_EQ(ZCP_Encrypt("x", "AES256", nullptr, &out), ZCP_BAD_SCHEME);
    EXPECT_EQ(out, nullptr);
    const std::string value = encrypt("correct horse");
    configureTraceLog(scratch_.path("c-.log"));
    configureTrace("ERROR", nullptr);
    HOST_TRACE_FUNCTION();
    host_trace_error("value %s", decrypt(value).c_str());
    configureTraceLog("");
    const std::string log = readFile(scratch_.path("c-01.log"));
    EXPECT_NE(log.find("value xxx\n"), std::string::npos) << log;
}

}  // namespace
}  // namespace almanac::host::test
