#include <climits>
#include <cstring>

#include "foundation/Trace.h"
#include "runtime/binding/GenericAgent.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr unsigned kRowsAtOnce = 10;

AttributeGroupMeta* metaOf(const GenericAgentManager* table) { return table ? table->attributeGroupMeta() : nullptr; }

int frameworkType(const AttributeMeta* attribute) {
    if (attribute->type() == 1) return HBX_TEXT;
    if (attribute->type() == 2) return HBX_UTF8;
    if (attribute->length() == 2) return HBX_INT16;
    if (attribute->length() == 8) return HBX_INT64;
    return HBX_INT32;
}

// A signed value of up to eight bytes in host byte order.
long long readInteger(const char* at, int length) {
    switch (length) {
        case 2: {
            short value;
            std::memcpy(&value, at, sizeof value);
            return value;
        }
        case 8: {
            long long value;
            std::memcpy(&value, at, sizeof value);
            return value;
        }
        case 4: {
            int value;
            std::memcpy(&value, at, sizeof value);
            return value;
        }
        default: {
            unsigned long long value = 0;
            if (length > 0) std::memcpy(&value, at, static_cast<std::size_t>(length < 8 ? length : 8));
            return static_cast<long long>(value);
        }
    }
}

long long clamped(long long value) { return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : value; }

}  // namespace

GenericAgentBase::GenericAgentBase(RequestDetail* detail, ContextInfo* context, GenericAgentManager* table)
    : aghbx(detail, context, table), table_(table) {
    TRACE_FUNCTION();
    const AttributeGroupMeta* meta = metaOf(table);
    if (!table) trace_error("Warning: GenericAgentManager pointer was NULL.\n");
    if (table && !meta) trace_error("Note: userDataInfo object not yet created.\n");
    SetRowSize(meta ? static_cast<unsigned>(meta->rowSize()) : 0);
    SetAllocationDefault(meta ? kRowsAtOnce : 1);
}

AttributeGroupMeta* GenericAgentBase::attributeGroupMeta() { return metaOf(table_); }

int GenericAgentBase::PrintSelf() {
    TRACE_FUNCTION();
    const AttributeGroupMeta* meta = metaOf(table_);
    trace_detail("request %p on table %s of %s", static_cast<const void*>(this), meta ? meta->tableName() : "",
                 meta ? meta->applName() : "");
    return 0;
}

int GenericAgentBase::NumColumns() {
    TRACE_FUNCTION();
    if (const AttributeGroupMeta* meta = metaOf(table_)) return meta->noOfColumns();
    trace_error("Error: coInfo not set for application <%s> table <%s>\n", ApplicationName(), TableName());
    return 0;
}

int GenericAgentBase::GetColumnInfo(ColumnInfo* info, int column) {
    TRACE_FUNCTION();
    const AttributeGroupMeta* meta = metaOf(table_);
    if (!meta) {
        trace_error("Error: coInfo not set.\n");
        return HBX_BAD_COLUMN;
    }
    if (!info || column < 0 || column >= meta->noOfColumns()) {
        trace_error("Error: colno %d is invalid\n", column);
        return HBX_BAD_COLUMN;
    }
    const AttributeMeta* attribute = meta->columnAt(column);
    info->name = attribute->name();
    info->hint = attribute->hint();
    info->offset = attribute->offset();
    info->length = attribute->length();
    info->type = frameworkType(attribute);
    return 0;
}

int GenericAgentBase::ColumnIsException(char* row, char* column, _IntfOper oper, char* value) {
    TRACE_MESSAGES();
    trace_detail("column<%s> oper<%d>\n", column ? column : "", oper);
    if (!column) return 0;
    if (!table_) {
        trace_error("Warning: _tblMgr not set.\n");
        return 0;
    }
    const AttributeGroupMeta* meta = metaOf(table_);
    if (!meta) {
        trace_error("Warning: coInfo cannot be resolved.\n");
        return 0;
    }
    int offset = 0;
    int length = 0;
    int type = 0;
    if (!meta->columnInfo(column, &offset, &length, &type)) return 0;
    const char* at = row + offset;
    switch (type) {
        case 1:
        case 2:
            return IsException(oper, at, value, length);
        case 0:
        case 3:
        case 4:
        case 5:
            return IsException(oper, static_cast<int>(clamped(readInteger(at, length))), value);
        case 6:
        case 7:
        case 8:
        case 9: {
            const long long wide = readInteger(at, length);
            const long narrow = static_cast<long>(clamped(wide));
            trace_detail("64 bit integer comparison value=%lld, using %d", wide, static_cast<int>(narrow));
            return IsException(oper, narrow, value);
        }
        default:
            return 0;
    }
}
