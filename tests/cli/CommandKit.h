// The almanac command as a user types it, in a data directory of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/Scratch.h"

namespace almanac::test {

using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::writeFile;

inline std::string fromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class Command : public testing::Test {
  protected:
    void SetUp() override {
        bin_ = fromEnvironment("ALMANAC_BIN_DIR");
        source_ = fromEnvironment("ALMANAC_SOURCE_DIR");
        ASSERT_FALSE(bin_.empty()) << "ALMANAC_BIN_DIR names the folder of the programs";
    }
    void TearDown() override { almanac("stop"); }

    Outcome shell(const std::string& line) {
        const std::string errors = data_.path("stderr.txt");
        const std::string command = "unset ALMANAC_SOCKET CDP_CORRECTIONS; export ALMANAC_DATA_DIR='" + data_.path("data") +
                                    "'; " + line + " 2>'" + errors + "'";
        Outcome o;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) return o;
        char buffer[4096];
        std::size_t n = 0;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) o.out.append(buffer, n);
        const int status = pclose(pipe);
        o.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
        o.err = readFile(errors);
        return o;
    }
    Outcome almanac(const std::string& arguments, const std::string& before = "") {
        return shell(before + "'" + bin_ + "/almanac' " + arguments);
    }
    std::string example() const { return source_ + "/examples/host/host.xml"; }
    bool startExample() {
        const Outcome o = almanac("run --daemon '" + example() + "'");
        EXPECT_EQ(o.status, 0) << o.err;
        return o.status == 0;
    }
    // A reference file with one script table of three columns.
    std::string oneTable(const std::string& command, const std::string& extra = "") {
        const std::string path = data_.path("one.xml");
        writeFile(path, "<agent>\n<appl name=\"TST\" nodeType=\"TS\" affinity=\"T\" internalAgentVersion=\"01\"/>\n<metadata>\n"
                        "<ag table=\"One\" name=\"One\">\n<attr name=\"Timestamp\" type=\"1\" size=\"16\"/>\n"
                        "<attr name=\"Name\" type=\"2\" size=\"16\"/>\n<attr name=\"Number\" type=\"7\" size=\"8\"/>\n</ag>\n</metadata>\n" +
                        extra + "<script app=\"TST\" ag=\"One\" name=\"one\" separator=\",\" command=\"" + command + "\">\n"
                        "<metric name=\"Name\" type=\"STRING_DATA\" key=\"true\" visible=\"true\"/>\n"
                        "<metric name=\"Number\" type=\"NUMERIC_64BIT_DATA\" visible=\"true\"/>\n</script>\n</agent>\n");
        return path;
    }

    Scratch data_;
    std::string bin_;
    std::string source_;
};

// The number behind the first such text, -1 without it.
inline long numberBehind(const std::string& text, const std::string& key) {
    const std::size_t at = text.find(key);
    return at == std::string::npos ? -1 : std::atol(text.c_str() + at + key.size());
}

}  // namespace almanac::test
