// The texts of a process's files: against sscanf itself, and the rules of `stat` and `status`.
#include "providers/local/proctable/ProcText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "providers/local/proctable/FakeProc.h"
#include "providers/local/proctable/FileProc.h"
#include "providers/local/proctable/ScanfModel.h"

namespace {

using namespace almanac::test;

enum File { kStatFile, kStatMFile, kStatusFile, kIOFile };

void compare(File file, const std::string& text) {
    procstat ours = patternRecord(), model = patternRecord();
    bool read = true, modelRead = true;
    switch (file) {
        case kStatFile:
            read = parseStat(text, StatRule::Tail, &ours) == nullptr;
            modelRead = modelStat(text, &model);
            break;
        case kStatMFile:
            read = parseStatM(text, &ours) == nullptr;
            modelRead = modelStatM(text, &model);
            break;
        case kStatusFile:
            read = parseStatus(text, StatusRule::Order, &ours) == nullptr;
            modelRead = modelStatus(text, &model);
            break;
        case kIOFile: {
            procstat wide = patternRecord(), fromZero{};
            parseIO(text, IoRule::Wide, &wide);
            modelIO(text, &fromZero);
            EXPECT_EQ(static_cast<int>(wide.read_bytes), fromZero.read_bytes) << "its low bits: " << text;
            EXPECT_EQ(static_cast<int>(wide.rchar), fromZero.rchar) << "its low bits: " << text;
            parseIO(text, IoRule::Narrow, &ours);
            modelIO(text, &model);
        }
    }
    EXPECT_EQ(read, modelRead) << file << ": " << text;
    EXPECT_TRUE(sameFigures(ours, model)) << file << ": " << text;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

FakeProcess named(const std::string& name) {
    FakeProcess p;
    p.pid = 4711;
    p.ppid = 12;
    p.name = name;
    p.utime = 100;
    p.stime = 50;
    p.tailUser = 7;
    p.tailSystem = 8;
    p.startTime = 12345;
    return p;
}

}  // namespace

TEST(ProcText, StatAsSscanfReadsIt) {
    const std::string line = named("worker").stat();
    for (const char* name : {"", "a b", "a) S 1", "(x)", ")", " ", "tab\there", "line\nfeed", "a-name-of-sixty-three-bytes-and-more-"
                             "which-a-kernel-thread-may-have-some-day-0123456789"}) {
        compare(kStatFile, named(name).stat());
    }
    for (const char* number : {"9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809",
                               "18446744073709551615", "18446744073709551616", "99999999999999999999999999", "-1", "+5", "-",
                               "+-5", "0x10", "007", "2147483648", "-2147483649", "4294967297", "1.5", "x", "",
                               "000000000000000000000000000000012"}) {
        for (const char* field : {"4711 (", "S 12 ", " 4194304 ", " 100 50 ", " 12345 ", " 17 18 ", " 3 0 0 7 ", " 94076736891952 "}) {
            std::string text = line;
            const std::size_t at = text.find(field);
            const std::size_t digit = text.find_first_of("0123456789", at);
            compare(kStatFile, text.replace(digit, text.find(' ', digit) - digit, number));
        }
    }
    for (std::size_t length = 0; length <= line.size(); ++length) {
        compare(kStatFile, line.substr(0, length));
        compare(kStatFile, line.substr(0, length) + "\n");
    }
    compare(kStatFile, std::string(line).insert(60, 1, '\0'));
    for (const std::size_t padding : {1023 - line.size(), 1024 - line.size(), 1025 - line.size()}) {
        compare(kStatFile, line.substr(0, line.size() - 1) + std::string(padding, ' ') + "\n");
    }
}

TEST(ProcText, OtherFilesAsSscanfReadsThem) {
    const FakeProcess p = named("worker");
    for (const std::string& text : {p.status(), p.status(""), p.status("FDSize:\t64\nGroups:\t0 \n"), p.status("\n\nOther:\n")}) {
        compare(kStatusFile, text);
        for (std::size_t i = 0; i < text.size(); i += 3) compare(kStatusFile, text.substr(0, i));
    }
    // A line that names an item in its middle is taken for it; what it holds is not.
    compare(kStatusFile, replaced(p.status(""), "Umask:", "x State: Name:"));
    compare(kStatusFile, replaced(p.status(""), "VmPin:", "x VmSize: VmRSS: 5"));
    compare(kStatusFile, p.status("VmLib:\t77 kB\nThreads:\t6\n"));
    for (const std::string& text : {p.io(), replaced(p.io(), "syscr: 3", "\n\nsyscr: -99999999999"), std::string("wchar: 7\nrchar: x\n"),
                                    replaced(p.io(), "rchar: 1", " rchar: 1"), replaced(p.io(), "write_bytes: 0", "a write_bytes 3")}) {
        for (std::size_t i = 0; i <= text.size(); ++i) compare(kIOFile, text.substr(0, i));
    }
    for (const std::string& text : {p.statm(), std::string("1 2 3\n"), std::string("x\n"), std::string("\n"), std::string()}) {
        compare(kStatMFile, text);
        compare(kStatMFile, text + "9");
    }
}

TEST(ProcText, RandomDamageAsSscanfReadsIt) {
    std::mt19937 random(4711);
    const FakeProcess p = named("worker");
    const std::string texts[] = {p.stat(), p.statm(), p.status("FDSize:\t64\n"), p.io()};
    constexpr char kBytes[] = " \t\n0123456789-+():xVmPidS\v\r";
    for (int round = 0; round < 20000; ++round) {
        const auto file = static_cast<File>(random() % 4);
        std::string text = texts[file];
        for (auto changes = random() % 6; changes > 0; --changes) {
            const std::size_t at = random() % text.size();
            const char byte = kBytes[random() % (sizeof kBytes - 1)];
            switch (random() % 3) {
                case 0: text[at] = byte; break;
                case 1: text.insert(at, 1, byte); break;
                default: text.erase(at, 1 + random() % 3);
            }
            if (text.empty()) text = "x";
        }
        compare(file, text);
        if (testing::Test::HasFailure()) return;
    }
}

TEST(ProcText, WhereTheTimesAre) {
    struct Case {
        StatRule rule;
        std::string text;
        unsigned long utime, startTime;
        int ppid;
    } cases[] = {
        {StatRule::Tail, named("worker").stat(), 7, 12345, 12},
        {StatRule::Fields, named("worker").stat(), 100, 12345, 12},
        // 37 conversions: the times stay those of fields 14 and 15.
        {StatRule::Tail, replaced(named("worker").stat(), " 94076736891952 94076736893568 94077285003264 1 2 3 4 0", ""), 100, 12345, 12},
        {StatRule::Fields, replaced(named("worker").stat(), " 94076736891952 94076736893568 94077285003264 1 2 3 4 0", ""), 100, 12345, 12},
        // A name with a blank: what stands behind it is the process before's, or right.
        {StatRule::Tail, named("a b").stat(), 1, 2, 3},
        {StatRule::Fields, named("a b").stat(), 100, 12345, 12},
        {StatRule::Fields, named("a) R 1 (b").stat(), 100, 12345, 12},
        {StatRule::Fields, named("line\nfeed").stat(), 100, 12345, 12},
    };
    for (const Case& c : cases) {
        procstat r{};
        r.utime = 1;
        r.start_time = 2;
        r.ppid = 3;
        EXPECT_EQ(parseStat(c.text, c.rule, &r), nullptr);
        EXPECT_EQ(r.pid, 4711);
        EXPECT_EQ(r.utime, c.utime) << c.text;
        EXPECT_EQ(r.start_time, c.startTime) << c.text;
        EXPECT_EQ(r.ppid, c.ppid) << c.text;
    }
    procstat r{};
    EXPECT_STREQ(parseStat(named("line\nfeed").stat(), StatRule::Tail, &r), "Warn - strrchr failed - buffer format unknown");
    EXPECT_STREQ(parseStat("1 (x) S 1", StatRule::Tail, &r), "Warn - getline failed for stat file");
    for (const StatRule rule : {StatRule::Tail, StatRule::Fields}) {
        EXPECT_STREQ(parseStat("", rule, &r), "Warn - getline failed for stat file");
        EXPECT_STREQ(parseStat("1 (x\n", rule, &r), "Warn - strrchr failed - buffer format unknown");
        EXPECT_EQ(parseStat("9 (x) S 1\n", rule, &r), nullptr);
        EXPECT_EQ(r.processor, -1);
    }
}

TEST(ProcText, HowWideTheFiguresOfIoAre) {
    const std::string text = "rchar: 5000000000\nwchar: 1\nread_bytes: 4294967297\n";
    procstat r{};
    r.write_bytes = 99;
    parseIO(text, IoRule::Narrow, &r);
    EXPECT_EQ(r.rchar, 705032704);
    EXPECT_EQ(r.read_bytes, 1);
    EXPECT_EQ(r.write_bytes, 99);
    parseIO(text, IoRule::Wide, &r);
    EXPECT_EQ(r.rchar, 5000000000);
    EXPECT_EQ(r.read_bytes, 4294967297);
    EXPECT_EQ(r.write_bytes, 0);
    parseIO("", IoRule::Wide, &r);
    EXPECT_EQ(r.rchar, 0);
}

TEST(ProcText, WhichLinesOfStatusAreRead) {
    const FakeProcess p = named("worker");
    const std::string kernelThread = "Name:\tkthreadd\nState:\tS\nPid:\t2\nPPid:\t0\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\t64\n"
                                     "Threads:\t1\nSigQ:\t0\nSigPnd:\t0\nShdPnd:\t0\nSigBlk:\t0\nSigIgn:\t0\nSigCgt:\t0\nCapInh:\t0\n";
    const std::string six = "a\nb\nc\nd\ne\nf\n";
    const std::string groups = "Groups:\t" + std::string(3000, '7') + "\n";
    struct Case {
        StatusRule rule;
        std::string text;
        bool reads;
        unsigned long size, data, lib;
        long threads;
    } cases[] = {
        // Eight others in front of the memory: given up. Seven: the line behind two of memory gives it up, and they stay.
        {StatusRule::Order, p.status(), true, 0, 99, 0, 1},
        {StatusRule::Names, p.status(), true, 4096, 2, 5, 1},
        {StatusRule::Order, p.status(six + "g\n"), true, 4096, 99, 0, 1},
        {StatusRule::Order, p.status(six + "g\nh\n"), true, 0, 99, 0, 1},
        {StatusRule::Order, replaced(p.status(six + "g\nh\n"), "Threads:", "Strings:"), true, 0, 99, 0, -1},
        {StatusRule::Order, p.status("FDSize:\t64\nGroups:\t0 \nVmPeak:\t1 kB\n"), true, 4096, 2, 5, 1},
        // Threads in front of the eighth other line count.
        {StatusRule::Order, p.status("Threads:\t3\n" + six + "g\nh\n"), true, 0, 99, 0, 3},
        {StatusRule::Order, kernelThread, true, 0, 99, 0, 1},
        {StatusRule::Order, replaced(kernelThread, "CapInh:\t0\n", ""), false, 99, 99, 99, 1},
        {StatusRule::Names, kernelThread, true, 0, 0, 0, 1},
        {StatusRule::Order, p.status(groups), false, 99, 99, 99, 99},
        {StatusRule::Names, p.status(groups), true, 4096, 2, 5, 1},
        {StatusRule::Names, "Threads:\t4\nVmSize:\t 17 kB", true, 17, 0, 0, 4},
        {StatusRule::Names, "Name:\tx\n", true, 0, 0, 0, -1},
        {StatusRule::Names, "", false, 99, 99, 99, 99},
        {StatusRule::Order, p.status("").substr(0, 200), false, 4096, 99, 99, 99},
    };
    int number = 0;
    for (const Case& c : cases) {
        procstat r{};
        r.vm_size = r.vm_data = r.vm_lib = 99;
        r.nlwp = 99;
        const char* const error = parseStatus(c.text, c.rule, &r);
        EXPECT_STREQ(error, c.reads ? nullptr : "Warn - getline failed for status file") << number;
        EXPECT_EQ(r.vm_size, c.size) << number;
        EXPECT_EQ(r.vm_data, c.data) << number;
        EXPECT_EQ(r.vm_lib, c.lib) << number;
        EXPECT_EQ(r.nlwp, c.threads) << number;
        ++number;
    }
}
