#include "runtime/reference/AttributeGroupMeta.h"

#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"

HashMap& metaMap = *new HashMap;

AttributeGroupMeta* findAttributeGroupMeta(const char* name) {
    return static_cast<AttributeGroupMeta*>(metaMap.get(name));
}

void deleteAllMetadata() {
    metaMap.foreach (
        [](const char* key, const void* value, void*) {
            delete static_cast<AttributeGroupMeta*>(const_cast<void*>(value));
            std::free(const_cast<char*>(key));
        },
        nullptr);
    metaMap.clear();
}

namespace {

char* duplicate(const char* text) { return text ? strdup(text) : nullptr; }

// A row of more bytes than this is a fault of the file, not a table.
constexpr int kLongestRow = 16 * 1024 * 1024;

}  // namespace

AttributeMeta::AttributeMeta(const char* name, const char* hint, int type, int length, int offset)
    : name_(duplicate(name ? name : "")), hint_(duplicate(hint)), type_(type), length_(length), offset_(offset) {}

AttributeMeta::~AttributeMeta() {
    std::free(name_);
    std::free(hint_);
}

AttributeGroupMeta::AttributeGroupMeta(const char* applName, const char* tableName)
    : applName_(duplicate(applName ? applName : "")),
      tableName_(duplicate(tableName ? tableName : "")),
      attributesByName_(32),
      columnsByName_(32) {}

AttributeGroupMeta::~AttributeGroupMeta() {
    for (int i = 0; i < attributeCount_; ++i) delete attributes_[i];
    std::free(attributes_);
    std::free(columns_);
    std::free(applName_);
    std::free(tableName_);
    std::free(subnodeType_);
    if (requestInfo_) {
        requestInfo_->foreach ([](const char* key, const void*, void*) { std::free(const_cast<char*>(key)); }, nullptr);
        delete requestInfo_;
    }
}

AttributeMeta* AttributeGroupMeta::findColumn(const char* name) const {
    TRACE_MESSAGES();
    auto* found = static_cast<AttributeMeta*>(columnsByName_.get(name));
    if (!found) trace_detail("Column not found on table %s: %s\n", tableName_, name ? name : "");
    return found;
}

AttributeMeta* AttributeGroupMeta::findAttribute(const char* name) const {
    TRACE_MESSAGES();
    auto* found = static_cast<AttributeMeta*>(attributesByName_.get(name));
    if (!found) trace_detail("Attribute not found on table %s: %s\n", tableName_, name ? name : "");
    return found;
}

bool AttributeGroupMeta::columnInfo(const char* name, int* offset, int* length, int* type) const {
    const AttributeMeta* column = findColumn(name);
    if (!column) return false;
    *offset = column->offset();
    *length = column->length();
    *type = column->type();
    return true;
}

void AttributeGroupMeta::updateColumns(List& attributes) {
    TRACE_FUNCTION();
    for (int i = 0; i < attributeCount_; ++i) delete attributes_[i];
    std::free(attributes_);
    std::free(columns_);
    attributesByName_.clear();
    columnsByName_.clear();
    attributeCount_ = attributes.getCount();
    columnCount_ = 0;
    const std::size_t room = static_cast<std::size_t>(attributeCount_ > 0 ? attributeCount_ : 1);
    attributes_ = static_cast<AttributeMeta**>(std::calloc(room, sizeof(AttributeMeta*)));
    columns_ = static_cast<AttributeMeta**>(std::calloc(room, sizeof(AttributeMeta*)));
    for (int i = 0; i < attributeCount_; ++i) {
        auto* attribute = static_cast<AttributeMeta*>(attributes.get(i));
        attributes_[i] = attribute;
        if (!attributesByName_.contains(attribute->name())) attributesByName_.put(attribute->name(), attribute);
        if (attribute->offset() == -1) continue;
        columns_[columnCount_++] = attribute;
        if (!columnsByName_.contains(attribute->name())) columnsByName_.put(attribute->name(), attribute);
    }
    trace_detail("Counts for table %s: attributes=%d, visible=%d\n", tableName_, attributeCount_, columnCount_);
    if (trace_is_on(ZTR1_DETAIL)) dump();
}

void AttributeGroupMeta::dump() const {
    TRACE_FUNCTION();
    trace_detail("Application : %s\n", applName_);
    trace_detail("Table       : %s\n", tableName_);
    trace_detail("Row size    : %d\n", rowSize_);
    trace_detail("Columns     : %d\n", columnCount_);
    trace_detail("Attributes  : %d\n", attributeCount_);
    const auto list = [](AttributeMeta* const* items, int count) {
        TRACE_MESSAGES();
        for (int i = 0; i < count; ++i) {
            trace_detail("[%d]\tName   : %s\n", i, items[i]->name());
            trace_detail("\tType   : %d\n", items[i]->type());
            trace_detail("\tLength : %d\n", items[i]->length());
            trace_detail("\tOffset : %d\n", items[i]->offset());
        }
    };
    list(attributes_, attributeCount_);
    trace_detail("Columns     :\n");
    list(columns_, columnCount_);
}

void AttributeGroupMeta::setSubnodeType(char* type) {
    std::free(subnodeType_);
    subnodeType_ = type;
}

void AttributeGroupMeta::setRequestInfo(const char* name) {
    if (!name) return;
    if (!requestInfo_) requestInfo_ = new HashMap(32);
    if (requestInfo_->contains(name)) return;
    char* copy = strdup(name);
    requestInfo_->put(copy, copy);
}

bool placeAttribute(AttributeMeta* attribute, const char* typeText, int* runningOffset) {
    TRACE_FUNCTION();
    bool known = true;
    int offset = *runningOffset;
    const int length = attribute->length();
    switch (attribute->type()) {
        case 1:
        case 2:
            break;
        case 0:
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
        case 9:
            if (length == 2) {
                offset = (offset + 1) / 2 * 2;
            } else if (length == 4 || length == 8) {
                offset = (offset + 3) / 4 * 4;  // kept: 8-byte values too, the framework reads the same layout
            } else {
                trace_error("WARNING: Attribute %s has an unsupported length: %d", attribute->name(), length);
                known = false;
            }
            break;
        default:
            trace_error("WARNING: Attribute %s is an unknown type %s", attribute->name(), typeText ? typeText : "");
            known = false;
    }
    if (length < 0 || length > kLongestRow - offset) {
        trace_error("WARNING: Attribute %s has an unsupported length: %d", attribute->name(), length);
        return false;  // no place: the row would have no end
    }
    attribute->setOffset(offset);
    *runningOffset = offset + length;
    return known;
}
