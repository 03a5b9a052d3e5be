#include "providers/derived/join/JoinQuery.h"

#include <cmath>
#include <cstring>

JoinQuery::JoinQuery(const char* className, const char* joinAttr, bool singleton)
    : className_(className ? className : ""), declaredAttr_(joinAttr), joinAttr_(joinAttr), singleton_(singleton) {}

JoinQuery::JoinQuery(const JoinQuery* prototype)
    : className_(prototype->className_),
      declaredAttr_(prototype->declaredAttr_),
      joinAttr_(prototype->declaredAttr_),
      singleton_(prototype->singleton_) {}

bool JoinQuery::matchesByInstanceName() const {
    const char* attribute = getJoinAttr();
    return getClientClass() && getClientClass()->getObjectType() == VX_PROCESS && attribute && std::strcmp(attribute, "Name") == 0;
}

PERF_OBJECT_ERROR_CODE JoinRows::initQueryData(ResultInstance* row) {
    *this = JoinRows(query_);
    const ResultsManager* source = query_->getClientClass();
    if (!source) return CANNOT_FIND_JOINED_QUERY;
    if (row) {
        oneRow_ = true;
        first_ = row;
        instanceCount_ = 1;
    } else {
        first_ = static_cast<ResultInstance*>(source->getResultInstanceListCursor().getCurrentElement());
        instanceCount_ = source->getResultInstanceCount();
    }
    at_ = first_;
    return isEmpty() ? NO_INSTANCES_RETURNED_IN_QUERY_1 : OBJECT_ACTIVE;
}

ResultInstance* JoinRows::getIndexedResultInstance(int i) {
    if (query_->isSingleton() || i == 0) return first_;
    if (oneRow_) return nullptr;
    if (i < position_) {
        at_ = first_;
        position_ = 0;
    }
    for (; at_ && position_ < i; ++position_) at_ = nextRow(at_);
    return at_;
}

std::size_t JoinRows::ValueHash::operator()(const Value& value) const {
    const std::size_t number = std::hash<unsigned long long>()(value.bits ^ (static_cast<unsigned long long>(value.form) << 56));
    return value.text.empty() ? number : number ^ std::hash<std::string_view>()(value.text);
}

JoinRows::Value JoinRows::valueOf(const ResultMetric* cell) {
    Value value;
    if (!cell) return value;
    value.there = true;
    value.form = cell->form();
    switch (cell->form()) {
        case FORM_INT:
            value.bits = static_cast<unsigned>(cell->getMetricValue());
            break;
        case FORM_INT64:
        case FORM_UINT64:
            value.bits = cell->getMetricValueU64();
            break;
        case FORM_DOUBLE: {
            const double number = cell->getMetricValueDouble() == 0 ? 0.0 : cell->getMetricValueDouble();
            value.there = !std::isnan(number);
            std::memcpy(&value.bits, &number, sizeof number);
            break;
        }
        case FORM_STRING:
            value.there = cell->getStringValue() != nullptr;
            if (value.there) value.text = cell->getStringValue();
            break;
        case FORM_UTF8: {
            const UTF8String* text = cell->getUTF8StringData();
            value.there = text != nullptr;
            if (text && text->getUTF8Value()) {
                value.text = std::string_view(text->getUTF8Value(), static_cast<std::size_t>(text->getLength()));
            }
            break;
        }
    }
    return value;
}

// A text of either form; numbers have none.
JoinRows::Value JoinRows::textOf(const ResultMetric* cell) {
    Value value = valueOf(cell);
    value.there = value.there && (value.form == FORM_STRING || value.form == FORM_UTF8);
    value.form = FORM_STRING;
    return value;
}

JoinRows::Value JoinRows::nameOf(const ResultInstance* row) {
    Value value;
    value.there = row->getInstanceName() != nullptr;
    value.form = FORM_STRING;
    if (value.there) value.text = row->getInstanceName();
    return value;
}

void JoinRows::makeIndex(bool asText) {
    indexed_ = true;
    index_.reserve(static_cast<std::size_t>(instanceCount_));
    const bool byName = query_->matchesByInstanceName();
    const char* attribute = query_->getJoinAttr();
    ResultInstance* row = first_;
    for (int i = 0; row && i < instanceCount_; ++i, row = nextRow(row)) {
        const ResultMetric* cell = byName ? nullptr : findCell(row, attribute);
        const Value value = byName ? nameOf(row) : asText ? textOf(cell) : valueOf(cell);
        if (value.there) index_.try_emplace(value, row);
    }
}

// In one pass the other side is always the same, so one index serves all its rows.
ResultInstance* JoinRows::find(const Value& value, bool asText) {
    if (!value.there) return nullptr;
    if (!indexed_) makeIndex(asText);
    const auto found = index_.find(value);
    return found == index_.end() ? nullptr : found->second;
}

ResultInstance* JoinRows::getMatchingResultInstance(const JoinRows& other, const ResultInstance* row) {
    if (other.query_->matchesByInstanceName()) return getMatchingPerfmonResultInstance(other, row);
    const ResultMetric* cell = findCell(row, other.query_->getJoinAttr());
    const bool asText = query_->matchesByInstanceName();
    return find(asText ? textOf(cell) : valueOf(cell), asText);
}

ResultInstance* JoinRows::getMatchingPerfmonResultInstance(const JoinRows&, const ResultInstance* row) {
    return find(nameOf(row), true);
}
