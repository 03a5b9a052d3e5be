// A configuration file of any bytes: it is refused with a message, or it comes back byte by byte, and a
// change of it reads back as it was meant.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/config/TomlDocument.h"

using almanac::host::TomlDocument;
using almanac::host::TomlSection;

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// A change may be refused (a new section can collide with a value of its name), but never misread.
void change(const std::string& text, TomlDocument* document) {
    std::string error;
    TomlDocument original;
    require(original.parse(text, "fuzz", &error));
    const auto sections = document->sections();
    if (!sections.empty()) {
        TomlSection* const first = sections.front();
        const auto names = first->entryNames();
        if (!names.empty()) first->setEntry(names.front(), "changed \"text\"\n");
        first->setEntry("ADDED", "1");
        if (sections.size() > 2) document->removeSection(sections[1]->name(), sections[1]->id());
    }
    if (TomlSection* const added = document->addSection("FUZZ")) {
        added->setID("id");
        added->setEntry("X", text.substr(0, 20));
    }
    const std::string rendered = document->render();
    if (!document->readsBackFrom(rendered, &error)) require(!error.empty());
    require(document->render() == rendered);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    TomlDocument document;
    std::string error;
    if (!document.parse(text, "fuzz", &error)) {
        require(!error.empty() && error.rfind("fuzz", 0) == 0);
        require(error.find('\n') == std::string::npos);
        return 0;
    }
    require(document.readsBackFrom(document.render(), &error));
    change(text, &document);
    return 0;
}
