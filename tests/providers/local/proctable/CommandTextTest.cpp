// Command lines and what is cut out of them; files read line by line.
#include <gtest/gtest.h>

#include <cstring>

#include "providers/local/proctable/FakeProc.h"
#include "providers/local/proctable/FileProc.h"
#include "providers/local/proctable/ProcList.h"

namespace {

using namespace almanac::test;
using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::writeFile;

}  // namespace

TEST(CommandText, CommandLineOfAProcess) {
    FakeProc proc;
    FakeProcess p;
    proc.put(p);
    procstat record{};
    record.pid = p.pid;
    char buffer[kCommandLineSize];
    struct Case {
        std::string bytes, text;
    } cases[] = {
        {std::string("a\0b\0", 4), "a b"},
        {std::string("a\0b", 3), "a b"},
        {std::string("a\0\0\0", 4), "a  "},
        {std::string("\0", 1), ""},
        {std::string("\0\0", 2), " "},
        {"x y", "x y"},
        {"[kworker]", "[kworker]"},
        {"two\nlines", "two\nlines"},
        {std::string(32767, 'x'), std::string(32767, 'x')},
        {std::string(65536, 'y'), std::string(32767, 'y')},
    };
    for (const Case& c : cases) {
        proc.put(p.pid, "cmdline", c.bytes);
        std::memset(buffer, '?', sizeof buffer);
        ASSERT_EQ(getCommandLine(&record, buffer, proc.root().c_str()), buffer);
        EXPECT_EQ(std::string(buffer), c.text);
    }
    const Traced traced("NONE (UNIT:CommandText DETAIL)");
    proc.put(p.pid, "cmdline", "");
    EXPECT_EQ(getCommandLine(&record, buffer, proc.root().c_str()), nullptr);
    EXPECT_TRUE(traced.has("Error reading " + proc.path(p.pid, "cmdline")));
    record.pid = 99;
    EXPECT_EQ(getCommandLine(&record, buffer, proc.root().c_str()), nullptr);
    EXPECT_TRUE(traced.has("Error opeing " + proc.path(99, "cmdline")));
    EXPECT_EQ(getCommandLine(&record, buffer, "/no/such/root"), nullptr);
    record.pid = getpid();
    EXPECT_TRUE(getCommandLine(&record, buffer)) << "the live table";
    EXPECT_TRUE(std::strstr(buffer, "test_proctable"));
}

TEST(CommandText, FullAndBaseName) {
    struct Case {
        std::string commandLine, fullName, baseName;
    } cases[] = {
        {"/usr/bin/worker -v /a/b", "/usr/bin/worker", "worker"},
        {"worker", "worker", "worker"},
        {"-bash", "-bash", "-bash"},
        {"/opt/dir/", "/opt/dir/", ""},
        {"nginx: master process /usr/sbin/nginx", "nginx:", "nginx:"},
        {" /leading", "", ""},
        {"", "", ""},
        {std::string(600, 'a') + "/" + std::string(600, 'b'), std::string(600, 'a') + "/" + std::string(422, 'b'), std::string(422, 'b')},
    };
    for (const Case& c : cases) {
        char buffer[kFullNameSize];
        EXPECT_EQ(getFullName(c.commandLine.c_str(), buffer), buffer);
        EXPECT_EQ(std::string(buffer), c.fullName);
        EXPECT_EQ(std::string(getBaseName(buffer)), c.baseName);
    }
    char withArguments[] = "/usr/bin/tool --in /var/x";
    EXPECT_STREQ(getBaseName(withArguments), "tool --in /var/x") << "a place in the text, up to the first blank";
    char slashBehindTheBlank[] = "tool /var/x";
    EXPECT_EQ(getBaseName(slashBehindTheBlank), slashBehindTheBlank);
}

TEST(FileProc, LinesOfFiles) {
    Scratch scratch;
    const std::string path = scratch.path("file");
    writeFile(path, "one\n\n" + std::string(1023, 'x') + "\nlast");
    FileProc file(path);
    char line[1024];
    EXPECT_TRUE(file.isOpen());
    EXPECT_EQ(file.name(), path);
    EXPECT_TRUE(file.GetNextLine(line));
    EXPECT_STREQ(line, "one");
    EXPECT_TRUE(file.GetNextLine(line));
    EXPECT_STREQ(line, "");
    EXPECT_TRUE(file.GetNextLine(line));
    EXPECT_EQ(std::strlen(line), 1023u);
    EXPECT_FALSE(file.GetNextLine(line)) << "no line end";
    EXPECT_FALSE(file.isStateGood());
    writeFile(path, std::string(1024, 'x') + "\nnext\n");
    FileProc longLine(path);
    EXPECT_FALSE(longLine.GetNextLine(line));
    FileBase out(path.c_str(), 0, 1);
    EXPECT_TRUE(out.WriteNextLine("written"));
    EXPECT_TRUE(out.WriteNextLine(""));
    EXPECT_FALSE(FileProc("/no/such/file").isOpen());
    EXPECT_FALSE(FileProc("/no/such/file").GetNextLine(line));
}
