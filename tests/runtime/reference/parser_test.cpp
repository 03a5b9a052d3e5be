#include "runtime/reference/Parser.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

// Everything a parse delivers, as one text.
class Recorder : public XMLHandler {
  public:
    void startElement(const char* name, HashMap* attributes) override {
        events += std::string("<") + name;
        std::map<std::string, std::string> sorted;
        HashMapIterator it = attributes->iterator();
        while (it.hasNext()) {
            it.next();
            sorted[it.getKey()] = static_cast<const char*>(it.getData());
        }
        for (const auto& a : sorted) events += " " + a.first + "=" + a.second;
        events += ">";
    }
    void endElement(const char* name) override { events += std::string("</") + name + ">"; }
    void characters(const char* text) override { events += std::string("[") + text + "]"; }
    void fatalError(const char* message) override {
        ++failures;
        failure = message;
    }
    using XMLHandler::fatalError;
    std::string events;
    std::string failure;
    int failures = 0;
};

struct Outcome {
    bool ok;
    std::string events;
    std::string failure;
};

Outcome parse(std::string text) {
    Recorder recorder;
    Parser parser(&recorder);
    const bool ok = parser.parse(text.data());
    EXPECT_EQ(recorder.failures, ok ? 0 : 1) << text;
    return {ok, recorder.events, recorder.failure};
}

TEST(Parser, DeliversWhatTheGrammarHolds) {
    const struct {
        const char* text;
        const char* events;
    } cases[] = {
        {"", ""},
        {"only text", ""},
        {"<a b=\"1\"/>", "<a b=1></a>"},
        {"<a/>", "<a></a>"},
        {"<a></a>tail", "<a></a>"},
        {"<a> x <b>y</b></a>", "<a>[ x ]<b>[y]</b></a>"},
        {"<a>", "<a>"},  // open elements are not told when the text ends right behind a tag
        {"<?xml version=\"1.0\"?><!-- <a> -- --><b/>", "<b></b>"},
        {"<a b=\"1\" b=\"2\"/>", "<a b=2></a>"},
        {"<a b=\"1\"c=\"2\">", "<a b=1 c=2>"},
        {"<a   b=\"x y\"   />", "<a b=x y></a>"},
        {"<a b =\"1\"/>", "<a b =1></a>"},        // the blank stays in the name
        {"<a b=\"<&gt;'\"/>", "<a b=<>'></a>"},
        {"<a\nb=\"1\"/>", "<a\nb=\"1\"></a\nb=\"1\">"},  // a line feed is no white space: all of it is the name
        {"<a>&lt;&amp;lt;&#65;&#x42;&quot;&apos;</a>", "<a>[<&lt;AB\"']</a>"},
        {"<a>a & b</a>", "<a>[a & b]</a>"},
    };
    for (const auto& c : cases) {
        const Outcome o = parse(c.text);
        EXPECT_TRUE(o.ok) << c.text << ": " << o.failure;
        EXPECT_EQ(o.events, c.events) << c.text;
    }
}

TEST(Parser, TellsEachFaultInItsWords) {
    const struct {
        const char* text;
        const char* failure;
    } cases[] = {
        {"<a> ", "Missing end tag for element: a"},
        {"<a><b></a>", "Mismatched end tag found: a != b"},
        {"</a>", "Unbalanced end tag found:"},
        {"<a></a >", "Element ending tags cannot have attributes"},
        {"<!-- x", "Unfinished comment found"},
        {"<?xml", "Unfinished declaration found"},
        {"<a", "Cannot find end of tag"},
        {"</a", "Cannot find end of tag"},
        {"<a/b>", "Incorrect end of tag"},
        {"<a b=\"1\"/x>", "Incorrect end of tag found"},
        {"<a ", "Cannot find end of tag or start of attribute"},
        {"<a b>", "Cannot find start of attribute value"},
        {"<a b='1'>", "Attribute value does not start with quote"},
        {"<a b=\"1>", "Cannot find end of attribute value"},
        {"<a>&foo;</a>", "Unrecognized entity: foo"},
        {"<a>x & y; z</a>", "Unrecognized entity:  y"},
        {"<a>&;</a>", "Entity name cannot be empty"},
        {"<a b=\"&nbsp;\"/>", "Unrecognized entity: nbsp"},
        {"<!DOCTYPE x>", "Cannot find start of attribute value"},  // an element to this reader
    };
    for (const auto& c : cases) {
        const Outcome o = parse(c.text);
        EXPECT_FALSE(o.ok) << c.text;
        EXPECT_EQ(o.failure, c.failure) << c.text;
    }
}

TEST(Parser, WithoutAHandlerTheResultIsTheSame) {
    for (const char* text : {"<a></a>", "<a></b>", "<a b='1'/>", "<a>&bad;</a>", "<a> "}) {
        std::string copy = text;
        Parser parser(nullptr);
        const bool entityOnlyMattersToHandlers = std::string(text) == "<a>&bad;</a>";
        EXPECT_EQ(parser.parse(copy.data()), parse(text).ok || entityOnlyMattersToHandlers) << text;
    }
}

TEST(Parser, ATextCutAnywhereIsAnErrorOrAnEqualPrefix) {
    const std::string whole = "<?xml?><r><a k=\"v&amp;w\">text<!-- c --><b/></a>&#65; tail<c d=\"1\" e=\"2\"></c></r>";
    const std::string all = parse(whole).events;
    for (std::size_t n = 0; n < whole.size(); ++n) {
        const Outcome o = parse(whole.substr(0, n));
        if (o.ok) {
            EXPECT_EQ(all.compare(0, o.events.size(), o.events), 0) << n << ": " << o.events;
        }
    }
}

TEST(Parser, ManyThingsAreLinear) {
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<a>";
    EXPECT_TRUE(parse(deep).ok);
    std::string wide = "<a";
    for (int i = 0; i < 100000; ++i) wide += " k" + std::to_string(i) + "=\"v\"";
    EXPECT_TRUE(parse(wide + "/>").ok);
    const std::string ampersands = "<a>" + std::string(1000000, '&') + "</a>";
    EXPECT_TRUE(parse(ampersands).ok);
    EXPECT_TRUE(parse("<a>" + std::string(3000000, 'x') + "&lt;</a>").ok);
}

TEST(Parser, OffsetsPointAtTheTag) {
    struct Places : XMLHandler {
        void startElement(const char*, HashMap*) override { places.push_back(parser->offset()); }
        std::vector<std::size_t> places;
        Parser* parser = nullptr;
    } handler;
    Parser parser(&handler);
    handler.parser = &parser;
    std::string text = "<a>\n  <b c=\"1\"/>\n</a>";
    EXPECT_TRUE(parser.parse(text.data()));
    EXPECT_EQ(handler.places, (std::vector<std::size_t>{0, 6}));
    text = "<a>\n  <b c='1'/>\n</a>";
    EXPECT_FALSE(parser.parse(text.data()));
    EXPECT_EQ(parser.offset(), 6u);
}

}  // namespace
