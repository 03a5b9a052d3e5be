// Any bytes as a document: read with and without a handler (both agree), its entities replaced, and checked as a
// reference file.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "foundation/HashMap.h"
#include "runtime/check/ReferenceCheck.h"
#include "runtime/reference/Parser.h"

namespace {

// Touches every byte that it is given.
class Reader : public XMLHandler {
  public:
    void startElement(const char* name, HashMap* attributes) override {
        bytes += std::string(name).size();
        ++open;
        HashMapIterator it = attributes->iterator();
        while (it.hasNext()) {
            it.next();
            bytes += std::string(it.getKey()).size() + std::string(static_cast<const char*>(it.getData())).size();
        }
    }
    void endElement(const char* name) override {
        bytes += std::string(name).size();
        if (--open < 0) std::abort();
    }
    void characters(const char* text) override { bytes += std::string(text).size(); }
    void fatalError(const char* message) override {
        bytes += std::string(message).size();
        ++failures;
    }
    using XMLHandler::fatalError;

    std::size_t bytes = 0;
    int open = 0;
    int failures = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string buffer = text;
    Reader reader;
    const bool read = Parser(&reader).parse(buffer.data());
    if (read != (reader.failures == 0)) std::abort();
    buffer = text;
    Parser(nullptr).parse(buffer.data());
    buffer = text.c_str();
    const std::size_t before = buffer.size();
    if (replaceEntities(nullptr, buffer.data()) && std::string(buffer.c_str()).size() > before) std::abort();
    for (const Problem& problem : checkReferenceText(text)) formatProblem("file", text, problem);
    return 0;
}
