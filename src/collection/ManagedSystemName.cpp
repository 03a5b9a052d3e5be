#include "collection/ManagedSystemName.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"

namespace {

constexpr std::size_t kKey = 25;
constexpr std::size_t kAppl = 2;
constexpr std::size_t kType = 3;

void foldUp(char* text, int count) {
    for (int i = 0; i < count && text[i]; ++i) {
        if (text[i] >= 'a' && text[i] <= 'z') text[i] = static_cast<char>(text[i] - 'a' + 'A');
    }
}

}  // namespace

char* generateSubnodeManagedSystemName(const char* appl, const char* key, const char* type, char* buffer) {
    TRACE_FUNCTION();
    if (!appl || !key || !type) {
        trace_error("Failed due to NULL args: appl=%p, key=%p, type=%p", static_cast<const void*>(appl),
                    static_cast<const void*>(key), static_cast<const void*>(type));
        return nullptr;
    }
    if (std::strlen(key) > kKey) trace_detail("key will be truncated to \"%.25s\"", key);
    if (std::strlen(appl) > kAppl) {
        ++appl;  // two characters from position 1
        trace_detail("appl will be truncated to \"%.2s\"", appl);
    }
    if (std::strlen(type) > kType) trace_detail("type will be truncated to \"%.3s\"", type);
    if (!buffer) buffer = static_cast<char*>(std::malloc(MANAGED_SYSTEM_NAME_SIZE));
    if (!buffer) return nullptr;
    std::snprintf(buffer, MANAGED_SYSTEM_NAME_SIZE, "%.2s:%.25s:%.3s", appl, key, type);
    foldUp(buffer, 2);
    return buffer;
}
