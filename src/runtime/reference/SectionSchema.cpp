#include "runtime/reference/SectionSchema.h"

#include <algorithm>
#include <iterator>

#include "foundation/HashMap.h"

namespace {

HashMap& schemas() {
    static HashMap* registry = new HashMap;
    return *registry;
}

}  // namespace

const AttributeSchema sharedMetricAttributes[] = {
    {"name", AttributeSchema::Required},
    {"type", AttributeSchema::Required},
    {"key", AttributeSchema::Boolean},
    {"visible", AttributeSchema::Boolean},
    {"counter", AttributeSchema::Boolean},
    {"size", AttributeSchema::Integer},
    {"metricName", AttributeSchema::Text},
    {"map", AttributeSchema::Text},
    {"arg1", AttributeSchema::Text},
    {"arg2", AttributeSchema::Text},
    {"op", AttributeSchema::Text},
    {"formula", AttributeSchema::Text},
    {"scale", AttributeSchema::Integer},
    {"scaleTransparent", AttributeSchema::Boolean},
    {"precision", AttributeSchema::Integer},
    {nullptr, AttributeSchema::Text},
};

const AttributeSchema* withSharedMetricAttributes(std::initializer_list<AttributeSchema> own) {
    const auto shared = std::size(sharedMetricAttributes);  // its end included
    auto* all = new AttributeSchema[own.size() + shared];
    std::copy_n(sharedMetricAttributes, shared, std::copy(own.begin(), own.end(), all));
    return all;
}

void registerSectionSchema(const SectionSchema* schema) { schemas().put(schema->section, schema); }

const SectionSchema* findSectionSchema(const char* section) {
    return static_cast<const SectionSchema*>(schemas().get(section));
}
