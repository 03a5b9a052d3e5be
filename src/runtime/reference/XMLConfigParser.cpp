#include "runtime/reference/XMLConfigParser.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "foundation/FatalExit.h"
#include "foundation/HashMap.h"
#include "foundation/Trace.h"
#include "foundation/ZbtString.h"
#include "runtime/reference/Parser.h"

const char* XMLConfigParser::getText(const HashMap* attributes, const char* name) {
    return static_cast<const char*>(attributes->get(name));
}

bool XMLConfigParser::getBoolean(const HashMap* attributes, const char* name) {
    const char* value = getText(attributes, name);
    return value && std::strcmp(value, "true") == 0;
}

int XMLConfigParser::getInteger(const HashMap* attributes, const char* name) {
    const char* value = getText(attributes, name);
    return value ? std::atoi(value) : 0;
}

HashMap* xmlConfigParsers() {
    static HashMap* registry = new HashMap;  // made by the first registration, whatever the order of initialisation
    return registry;
}

void registerXMLConfigParser(const char* element, XMLConfigParser* parser) { xmlConfigParsers()->put(element, parser); }

XMLConfigParser* findXMLConfigParser(const char* element) {
    return static_cast<XMLConfigParser*>(xmlConfigParsers()->get(element));
}

void ConfigXMLParser::startElement(const char* name, HashMap* attributes) {
    if (!section_) {
        section_ = findXMLConfigParser(name);
        if (!section_) return;
        sectionName_ = name;
    }
    section_->startElement(name, attributes);
}

void ConfigXMLParser::endElement(const char* name) {
    if (!section_) return;
    section_->endElement(name);
    // Kept: an element nested under the section's own name ends the section early.
    if (std::strcmp(name, sectionName_) == 0) {
        section_ = nullptr;
        sectionName_ = nullptr;
    }
}

void ConfigXMLParser::characters(const char* text) {
    if (section_) section_->characters(text);
}

void ConfigXMLParser::fatalError(const char* message) {
    TRACE_FUNCTION();
    trace_error("Fatal XML error: %s\n", message);
    exit_with_notification(-1);
}

bool initFromFile(const char* path) {
    TRACE_FUNCTION();
    struct Closer {
        void operator()(FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<FILE, Closer> file(path ? std::fopen(path, "rbe") : nullptr);
    struct stat info;
    if (!file || stat(path, &info) != 0 || S_ISDIR(info.st_mode)) {
        trace_error("Error opening file %s", path ? path : "(none)");
        return false;
    }
    ZBT::String text(static_cast<int>(info.st_size) + 1);
    const std::size_t got = std::fread(text.data(), 1, static_cast<std::size_t>(info.st_size), file.get());
    if (std::ferror(file.get())) {
        trace_error("Error opening file %s", path);
        return false;
    }
    text.setLength(static_cast<int>(got));
    file.reset();
    if (std::strlen(text.c_str()) != got) {
        trace_error("%s: a zero byte at offset %zu; what follows is not read", path, std::strlen(text.c_str()));
    }
    ConfigXMLParser handler;
    Parser parser(&handler);
    parser.parse(text.data());
    return true;
}
