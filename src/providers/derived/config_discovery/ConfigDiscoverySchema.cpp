// What a `config_discovery` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kDiscovery[] = {{"app", A::Text},
                            {"ag", A::Required},
                            {"subnode_type", A::Required},
                            {"subnode_affinity_value", A::Required},
                            {nullptr, A::Text}};

constexpr ElementSchema kElements[] = {{"config_discovery", kDiscovery, false},
                                       {"metric", sharedMetricAttributes, true},
                                       {nullptr, nullptr, false}};

constexpr SectionSchema kSchema = {"config_discovery", kElements, true, true};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
