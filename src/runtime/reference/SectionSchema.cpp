#include "runtime/reference/SectionSchema.h"

#include <vector>

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
    auto& all = *new std::vector<AttributeSchema>(own);
    for (const AttributeSchema* shared = sharedMetricAttributes; shared->name; ++shared) all.push_back(*shared);
    all.push_back({nullptr, AttributeSchema::Text});
    return all.data();
}

void registerSectionSchema(const SectionSchema* schema) { schemas().put(schema->section, schema); }

const SectionSchema* findSectionSchema(const char* section) {
    return static_cast<const SectionSchema*>(schemas().get(section));
}
