// The foundation's hot paths: cells made of short texts, lines cut into fields.
#include <benchmark/benchmark.h>

#include <string>

#include "foundation/StringTokenizer.h"
#include "foundation/UTF8String.h"

static void Utf8StringFromLocal(benchmark::State& state) {
    for (auto _ : state) {
        UTF8String text;
        text.initFromASCIIString("/dev/mapper/vg0-root");
        benchmark::DoNotOptimize(text.getUTF8Value());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Utf8StringFromLocal);

static void Utf8StringTaken(benchmark::State& state) {
    for (auto _ : state) {
        UTF8String text;
        text.initFromUTF8String("/dev/mapper/vg0-root");
        benchmark::DoNotOptimize(text.getUTF8Value());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Utf8StringTaken);

static void TokenizeLine(benchmark::State& state) {
    std::string line;
    for (int i = 0; i < 100; ++i) line += "field" + std::to_string(i) + ',';
    for (auto _ : state) {
        StringTokenizer tokens(line.c_str(), ",", true);
        while (const char* token = tokens.next()) benchmark::DoNotOptimize(token);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(line.size()));
}
BENCHMARK(TokenizeLine);

// A text of a megabyte that is cut into lines must not cost the square of its length.
static void TokenizeLongText(benchmark::State& state) {
    std::string text;
    while (text.size() < (1u << 20)) text += "a line of the text\n";
    for (auto _ : state) {
        StringTokenizer tokens(text.c_str(), "\n", false);
        while (const char* token = tokens.next()) benchmark::DoNotOptimize(token);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.size()));
}
BENCHMARK(TokenizeLongText);
