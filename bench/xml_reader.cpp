// The reader on a reference file of many groups, and on a reply full of text with entities.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "runtime/reference/Parser.h"

namespace {

std::string referenceFile() {
    std::string text = "<agent>\n";
    for (int g = 0; g < 500; ++g) {
        text += "  <ag table=\"T" + std::to_string(g) + "\" name=\"Group_" + std::to_string(g) + "\">\n";
        for (int a = 0; a < 20; ++a) {
            text += "    <attr name=\"Attribute_" + std::to_string(a) + "\" type=\"0\" size=\"4\" hint=\"d-2\"/>\n";
        }
        text += "  </ag>\n";
    }
    return text + "</agent>\n";
}

std::string reply() {
    std::string text = "<rows>";
    for (int r = 0; r < 20000; ++r) text += "<v>value &lt;" + std::to_string(r) + "&gt; of a row &amp; more</v>";
    return text + "</rows>";
}

// Counts, so that nothing is optimised away.
class Counter : public XMLHandler {
  public:
    void startElement(const char*, HashMap*) override { ++count; }
    void characters(const char* text) override { count += *text != 0; }
    std::size_t count = 0;
};

void read(benchmark::State& state, const std::string& text) {
    std::string buffer(text);
    for (auto _ : state) {
        std::memcpy(buffer.data(), text.data(), text.size());  // the reader writes into its text
        Counter counter;
        if (!Parser(&counter).parse(buffer.data())) state.SkipWithError("no document");
        benchmark::DoNotOptimize(counter.count);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

void BM_ReferenceFile(benchmark::State& state) { read(state, referenceFile()); }
void BM_ReplyWithEntities(benchmark::State& state) { read(state, reply()); }
BENCHMARK(BM_ReferenceFile);
BENCHMARK(BM_ReplyWithEntities);

}  // namespace
