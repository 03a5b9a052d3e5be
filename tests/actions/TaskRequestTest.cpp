// Requests that are made of values, and values that are literal.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "actions/TaskElement.h"
#include "foundation/Corrections.h"

namespace {

std::unique_ptr<TaskElement> taskOf(const char* command, std::initializer_list<std::array<const char*, 5>> parameters) {
    auto task = std::make_unique<TaskElement>("key", command, nullptr);
    for (const auto& [name, quote, start, end, overlap] : parameters) {
        task->addParameter(std::make_unique<TaskParameter>(name, "def", quote, start, end, overlap));
    }
    return task;
}

std::string compose(const TaskElement& task, const std::vector<const char*>& values) {
    std::string why;
    return task.composeRequest(values, &why).value_or("refused: " + why);
}

TEST(TaskRequest, IsMadeSoThatTheTaskReadsTheSameValues) {
    const auto brackets = taskOf("A B", {{"A", "false", "[", "]", nullptr}, {"B", "false", "[", "]", nullptr}});
    EXPECT_EQ(compose(*brackets, {"a [nested] b", ""}), "key [a [nested] b][]");
    EXPECT_EQ(compose(*brackets, {nullptr, "x"}), "key [][x]");
    EXPECT_EQ(compose(*brackets, {"x]y", "z"}), "refused: 'key' cannot take this value of A between its delimiters '[' and ']'");
    EXPECT_EQ(compose(*brackets, {"x", "[z"}), "refused: 'key' cannot take this value of B between its delimiters '[' and ']'");
    const auto shared = taskOf("A B", {{"A", "false", ",", ",", nullptr}, {"B", "false", ",", ",", nullptr}});
    EXPECT_EQ(compose(*shared, {"1", "2"}), "key ,1,2,");
    EXPECT_EQ(compose(*shared, {"1,5", "2"}).substr(0, 8), "refused:");
    const auto apart = taskOf("A B", {{"A", "false", "'", "'", nullptr}, {"B", "false", "'", "'", "false"}});
    EXPECT_EQ(compose(*apart, {"1", "2"}), "key '1''2'");
    const auto blanks = taskOf("A B", {{"A", "false", " ", " ", nullptr}, {"B", "false", " ", " ", nullptr}});
    EXPECT_EQ(compose(*blanks, {"1", "2"}), "key 1 2 ");
    EXPECT_EQ(compose(*blanks, {"1 2", "3"}).substr(0, 8), "refused:");
    const auto none = taskOf("A", {{"A", "false", nullptr, nullptr, nullptr}});
    EXPECT_EQ(compose(*none, {"1"}).substr(0, 8), "refused:");
    EXPECT_EQ(compose(*taskOf("x", {}), {}), "key");
}

TEST(TaskRequest, WhateverIsCarriedArrivesUnchanged) {
    const char* const delimiters[] = {" ", "[", "]", "(", ")", "|", "<<", ">>", "a", ""};
    std::mt19937 random(7);
    const auto any = [&](const auto& list) { return list[random() % std::size(list)]; };
    int carried = 0;
    setenv("CDP_CORRECTIONS", "task-quoting", 1);
    reloadCorrections();
    for (int i = 0; i < 20000; ++i) {
        const auto task = taskOf("{A}|{B}", {{"A", "false", any(delimiters), any(delimiters), random() % 2 ? "false" : nullptr},
                                             {"B", "false", any(delimiters), any(delimiters), random() % 2 ? "false" : nullptr}});
        std::string values[2];
        for (std::string& v : values) {
            for (auto n = 1 + random() % 5; n > 0; --n) v += "[]()|<>ab xy"[random() % 12];
        }
        std::string why;
        const auto request = task->composeRequest({values[0].c_str(), values[1].c_str()}, &why);
        EXPECT_NE(request.has_value(), !why.empty());
        if (!request) continue;
        ++carried;
        EXPECT_EQ(task->getTaskCommand(*request), "{" + values[0] + "}|{" + values[1] + "}") << *request;
    }
    unsetenv("CDP_CORRECTIONS");
    reloadCorrections();
    EXPECT_GT(carried, 2000);
}

TEST(TaskQuoting, IsLiteralWithTheCorrectionAlone) {
    const auto task = taskOf("run DIR COUNT", {{"DIR", "true", "[", "]", nullptr}, {"COUNT", nullptr, "[", "]", nullptr}});
    const auto expand = [&](const char* value) { return task->getTaskCommand(std::string("key [") + value + "][; touch x;]").value_or(""); };
    EXPECT_EQ(expand("$(x) `y`"), "run \"$(x) `y`\" \"; touch x;\"");
    EXPECT_EQ(expand("COUNT"), "run \"\"; touch x;\"\" \"; touch x;\"");  // kept
    setenv("CDP_CORRECTIONS", "task-quoting", 1);
    reloadCorrections();
    EXPECT_EQ(expand("$(x) `y`"), "run \"\"'$'\"(x) \\`y\\`\" \"; touch x;\"");
    EXPECT_EQ(expand("COUNT"), "run \"COUNT\" \"; touch x;\"");
    EXPECT_EQ(expand("${HOME}").find("${"), std::string::npos);
    // The shell itself gives every value back as it was.
    const auto echo = taskOf("printf %s VALUE", {{"VALUE", "true", "<<", ">>", nullptr}});
    for (const char* value : {"$(id)", "`id`", "\\", "\\\\$x", "\"; id; \"", "a'b", "${HOME}", "$", "!x *?", "VALUE", "line\nfeed"}) {
        FILE* pipe = popen(echo->getTaskCommand(std::string("key <<") + value + ">>").value_or("").c_str(), "r");
        char got[64] = "";
        EXPECT_GT(fread(got, 1, sizeof got - 1, pipe), 0u);
        pclose(pipe);
        EXPECT_STREQ(got, value);
    }
    // Of names that begin alike the longer one stands.
    const auto alike = taskOf("A AB", {{"A", "false", "[", "]", nullptr}, {"AB", "false", "[", "]", nullptr}});
    EXPECT_EQ(alike->getTaskCommand("key [1][2]"), "1 2");
    unsetenv("CDP_CORRECTIONS");
    reloadCorrections();
    EXPECT_EQ(alike->getTaskCommand("key [1][2]"), "1 1B");
}

}  // namespace
