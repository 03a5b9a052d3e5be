// What a request and a declared task make of each other.
#include "actions/TaskElement.h"

#include <gtest/gtest.h>

#include "actions/TaskOutput.h"

namespace {

struct Parameter {
    const char* name;
    const char* start = " ";
    const char* end = " ";
    const char* quote = "false";
    const char* defaultValue = nullptr;
    const char* overlap = nullptr;
};

std::string expand(const char* command, const std::vector<Parameter>& parameters, const std::string& request) {
    TaskElement task("key", command, nullptr);
    for (const Parameter& p : parameters) {
        task.addParameter(std::make_unique<TaskParameter>(p.name, p.defaultValue, p.quote, p.start, p.end, p.overlap));
    }
    return task.getTaskCommand(request).value_or("(none)");
}

TEST(TaskCommand, TakesTheValuesOfTheRequest) {
    const struct {
        const char* command;
        std::vector<Parameter> parameters;
        const char* request;
        const char* expanded;
    } cases[] = {
        {"run it", {}, "key what ever", "run it"},
        {"run A", {{"A"}}, "key one two", "run one"},
        {"run A", {{"A"}}, "key one", "run one"},  // the last one needs no end
        {"run A", {{"A"}}, "key", "(none)"},
        {"run B A A", {{"A"}, {"B"}}, "key one two", "run two one one"},
        // Nested pairs, where both delimiters are one byte and differ.
        {"run A", {{"A", "(", ")"}}, "f(a(b)c)", "run a(b)c"},
        {"run A", {{"A", "(", ")"}}, "f(a(b)c", "run a(b)c"},
        {"run A", {{"A", "((", "))"}}, "f((a((b))c))", "run a((b"},
        {"run A", {{"A", "|", "|"}}, "f|a|b|", "run a"},
        // The end delimiter of one value starts the next one unless told otherwise.
        {"A-B", {{"A", ",", ","}, {"B", ",", ","}}, "k,1,2,", "1-2"},
        {"A-B", {{"A", "'", "'"}, {"B", "'", "'", "false", nullptr, "false"}}, "k '1' '2'", "1-2"},
        {"A-B", {{"A", "'", "'"}, {"B", "'", "'"}}, "k '1' '2'", "1- "},
        {"A-B", {{"A", "[", "]"}, {"B", "[", "]", "false", nullptr, "FALSE"}}, "k [1] [2]", "1-2"},
        {"A-B", {{"A", "[", "]"}, {"B", "[", "]"}}, "k [1]", "(none)"},
        {"A-B", {{"A", "[", "]"}, {"B", "[", "]", "false", nullptr, "false"}}, "k [1", "(none)"},
        // Nothing between the delimiters: the default.
        {"run A.", {{"A", "[", "]", "false", "dflt"}}, "k []", "run dflt."},
        {"run A.", {{"A", "[", "]", "false", "<EMPTY_STRING>"}}, "k []", "run ."},
        {"run A.", {{"A", "[", "]", "false"}}, "k []", "run ."},
        {"run A.", {{"A", "[", "]", "true", "d\"x"}}, "k []", "run \"d\"x\"."},  // kept: as it stands
        {"run A.", {{"A", "[", "]", "true", "<EMPTY_STRING>"}}, "k []", "run \"<EMPTY_STRING>\"."},
        {"run A.", {{"A", "[", "]", "true", "\"\""}}, "k []", "run ."},  // four quotes are nothing
        {"run A.", {{"A", "[", "]", nullptr}}, "k []", "run \"\"."},
        // Quotes.
        {"run A.", {{"A", "[", "]", "true"}}, "k [a \"b\" \\c]", "run \"a \\\"b\\\" \\\\c\"."},
        {"run A.", {{"A", "[", "]", nullptr}}, "k [\"\"]", "run \"\"."},
        {"run A.", {{"A", "[", "]", "doublequote"}}, "k [\"\"]", "run \"\\\"\\\"\"."},
        {"run A.", {{"A", "[", "]", "none"}}, "k [\"a\" \\]", "run \"a\" \\."},
        // Delimiters left out: from where the search stands, and to the end.
        {"run A.", {{"A", nullptr, ";"}}, "k 1;2", "run k 1."},
        {"run A.", {{"A", "=", nullptr}}, "k=1 2", "run 1 2."},
        // A value holds its own name, or there is no name.
        {"run A", {{"A"}}, "key AAA", "run AAA"},
        {"run A", {{""}}, "key one", "run A"},
        {"A B", {{"A"}, {"B"}}, "key B x", "x x"},  // in the order of the parameters
    };
    for (const auto& c : cases) EXPECT_EQ(expand(c.command, c.parameters, c.request), c.expanded) << c.request;
}

TEST(TaskCommand, IsBoundedAndNotQuadratic) {
    const std::string large(200'000, 'x');
    EXPECT_EQ(expand("run A", {{"A"}}, "key " + large), "run " + large);
    EXPECT_EQ(expand("run A", {{"A", "(", ")"}}, "key (" + std::string(100'000, '(') + large), "run " + std::string(100'000, '(') + large);
    const std::string many(1000, 'A');
    EXPECT_EQ(expand(many.c_str(), {{"A"}}, "key " + large), "(none)");
    // Each value holds the next one's name many times over.
    EXPECT_EQ(expand("A", {{"A"}, {"B"}, {"C"}}, "key " + std::string(10'000, 'B') + " " + std::string(10'000, 'C') + " " + large), "(none)");
    TaskParameter parameter("A", nullptr, "false", nullptr, nullptr, nullptr);
    std::string buffer = many;
    EXPECT_FALSE(parameter.addParameterToCommandBuffer(&buffer, &large));
    EXPECT_EQ(buffer, many);
}

TEST(TaskCommand, IsTheSameFunctionForEveryCall) {
    TaskElement task("key", "run A", nullptr);
    task.addParameter(std::make_unique<TaskParameter>("A", "dflt", "false", "[", "]", nullptr));
    EXPECT_EQ(task.getTaskCommand("key [1]"), "run 1");
    EXPECT_EQ(task.getTaskCommand("key []"), "run dflt");
    EXPECT_STREQ(task.getFriendlyName(), "key");
}

std::string read(const std::string& output, TaskEvents events) {
    List instances, lines;
    readTaskOutput(output, events, &instances, &lines);
    EXPECT_EQ(instances.getCount(), lines.getCount());
    std::string all;
    for (int i = 0; i < lines.getCount(); ++i) {
        all += std::string(static_cast<char*>(instances.get(i))) + "=" + static_cast<char*>(lines.get(i)) + ";";
        std::free(instances.get(i));
        std::free(lines.get(i));
    }
    return all;
}

TEST(TaskOutput, IsOneEntryForEachLineOrOneForAll) {
    const std::string most(kLongestTaskLine, 'x');
    const std::string odd = std::string(kLongestTaskLine - 1, 'x') + "\xC3\xA4" + "b";  // the limit divides a character
    const struct {
        std::string output, lines, all;
    } cases[] = {
        {"", "", ""},
        {"a", "1=a;", "1=a;"},
        {"a\nb\nc\n", "1=a;2=b;3=c;", "3=a\nb\nc;"},
        {"a\n\nb", "1=a;2=;3=b;", "3=a\n\nb;"},  // nothing behind an empty line is lost
        {"\n", "1=;", "1=;"},
        {most + "\na", "1=" + most + ";2=a;", "2=" + most + "\na;"},
        {most + "y\na", "1=" + most + ";2=y;3=a;", "3=" + most + "\ny\na;"},
        {odd, "1=" + odd.substr(0, kLongestTaskLine - 1) + ";2=\xC3\xA4" "b;", "2=" + odd.substr(0, kLongestTaskLine - 1) + "\n\xC3\xA4" "b;"},
        {std::string(kLongestTaskLine + 1, '\x80'), "1=" + std::string(kLongestTaskLine, '\x80') + ";2=\x80;",
         "2=" + std::string(kLongestTaskLine, '\x80') + "\n\x80;"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(read(c.output, TaskEvents::OneForEachLine), c.lines);
        EXPECT_EQ(read(c.output, TaskEvents::OneForAll), c.all);
    }
}

TEST(TaskOutput, HasALimitOfItsLines) {
    const std::string output(kMostTaskLines + 1, '\n');
    for (const auto& [bytes, complete] : {std::pair(output.size() - 1, true), std::pair(output.size(), false)}) {
        List instances, lines;
        EXPECT_EQ(readTaskOutput(std::string_view(output).substr(0, bytes), TaskEvents::OneForEachLine, &instances, &lines), complete);
        EXPECT_EQ(lines.getCount(), kMostTaskLines);
        EXPECT_EQ(instances.getCount(), kMostTaskLines);
        for (List* list : {&instances, &lines}) {
            while (void* text = list->pop()) std::free(text);
        }
    }
}

}  // namespace
