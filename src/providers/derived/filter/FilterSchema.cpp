// What a `filter` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kFilter[] = {{"app", A::Text},
                         {"ag", A::Required},
                         {"raw_attribute_group_name", A::Required},
                         {"filter", A::Required},
                         {nullptr, A::Text}};

const ElementSchema kElements[] = {{"filter", kFilter, false},
                                   {"metric", withSharedMetricAttributes({{"metric_name", A::Text}}), true},
                                   {nullptr, nullptr, false}};

const SectionSchema kSchema = {"filter", kElements, true, true};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
