#include "runtime/reference/XMLHandler.h"

#include <cstdio>
#include <cstring>
#include <string>

void XMLHandler::startElement(const char*, HashMap*) {}
void XMLHandler::endElement(const char*) {}
void XMLHandler::characters(const char*) {}
void XMLHandler::fatalError(const char*) {}

namespace {

// Replaces each "%s" of a fixed format by the next argument.
std::string formatted(const char* format, const char* const* args, int count) {
    std::string text;
    int used = 0;
    for (const char* p = format; *p; ++p) {
        if (p[0] == '%' && p[1] == 's') {
            if (used < count) text += args[used++];
            ++p;
        } else {
            text += *p;
        }
    }
    return text;
}

}  // namespace

void XMLHandler::fatalError(const char* format, const char* arg) {
    const char* args[] = {arg};
    fatalError(formatted(format, args, 1).c_str());
}

void XMLHandler::fatalError(const char* format, const char* arg1, const char* arg2) {
    const char* args[] = {arg1, arg2};
    fatalError(formatted(format, args, 2).c_str());
}
