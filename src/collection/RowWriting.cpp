// The put operations: one value at an attribute's place in the row buffer, in the framework's row form.
#include <algorithm>
#include <climits>
#include <cstring>

#include "collection/VXClientClass.h"
#include "foundation/Locale.h"
#include "foundation/Trace.h"
#include "foundation/UTF8String.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// Low bytes of a value in host byte order, at most as many as it has; what remains of the column is zero.
void putBytes(char* row, const AttributeMeta* attribute, const void* value, std::size_t size) {
    const auto length = static_cast<std::size_t>(attribute->length());
    char* at = row + attribute->offset();
    std::memcpy(at, value, std::min(size, length));
    if (length > size) std::memset(at + size, 0, length - size);
}

void fill(char* row, const AttributeMeta* attribute, int used) {
    std::memset(row + attribute->offset() + used, ' ', static_cast<std::size_t>(attribute->length() - used));
}

int copyText(char* row, const AttributeMeta* attribute, const char* text) {
    const std::size_t taken = strnlen(text, static_cast<std::size_t>(attribute->length()));
    std::memcpy(row + attribute->offset(), text, taken);
    return static_cast<int>(taken);
}

}  // namespace

void VXClientClass::putString(char* row, const AttributeMeta* attribute, const char* text, bool convert) {
    TRACE_MESSAGES();
    if (!attribute->isText()) {
        trace_error("ERROR: Attribute is not of string type '%s' (%d)\n", attribute->name(), attribute->type());
    }
    if (attribute->offset() == -1) return;
    if (!text) text = "";
    int used = 0;
    if (convert) {
        const auto taken = static_cast<int>(strnlen(text, static_cast<std::size_t>(attribute->length())));
        ZLC2_toUTF8(getApplicationLocale(), text, taken, row + attribute->offset(), attribute->length(), &used);
    } else {
        used = copyText(row, attribute, text);
    }
    fill(row, attribute, used);
}

void VXClientClass::putUTF8String(char* row, const AttributeMeta* attribute, const UTF8String* text) {
    TRACE_MESSAGES();
    if (!attribute->isText()) {
        trace_error("ERROR: Attribute is not of string type '%s' (%d)\n", attribute->name(), attribute->type());
    }
    if (attribute->offset() == -1) return;
    const char* value = text ? text->getUTF8Value() : nullptr;
    fill(row, attribute, copyText(row, attribute, value ? value : ""));
}

void VXClientClass::putInt(char* row, const AttributeMeta* attribute, int value) {
    TRACE_MESSAGES();
    const int type = attribute->type();
    if (type != 0 && (type < 3 || type > 6)) {
        trace_error("ERROR: Attribute is not of 32-bit integer type '%s' (%d)\n", attribute->name(), type);
    }
    if (attribute->offset() == -1) return;
    if (type == 6) {
        const long long wide = value;
        putBytes(row, attribute, &wide, sizeof wide);
    } else {
        putBytes(row, attribute, &value, sizeof value);
    }
}

void VXClientClass::putInt64(char* row, const AttributeMeta* attribute, long long value) {
    TRACE_MESSAGES();
    const int type = attribute->type();
    if (type != 0 && (type < 3 || type > 9)) {
        trace_error("ERROR: Attribute is not of a numeric type '%s' (%d)\n", attribute->name(), type);
    }
    if (attribute->offset() == -1) return;
    if (type >= 6 && type <= 9) {
        putBytes(row, attribute, &value, sizeof value);
        return;
    }
    if (value > INT_MAX) {
        trace_detail("Metric %s value %lld exceeds maximum for an integer", attribute->name(), value);
        value = INT_MAX;
    } else if (value < INT_MIN) {
        trace_detail("Metric %s value %lld exceeds minimum for an integer", attribute->name(), value);
        value = INT_MIN;
    }
    const int narrow = static_cast<int>(value);
    putBytes(row, attribute, &narrow, sizeof narrow);
}
