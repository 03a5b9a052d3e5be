// What a `rollup` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kRollup[] = {{"app", A::Text}, {"ag", A::Required}, {"rollupAg", A::Required}, {"rollupAttr", A::Required},
                         {nullptr, A::Text}};

constexpr ElementSchema kElements[] = {{"rollup", kRollup, false},
                                       {"metric", sharedMetricAttributes, true},
                                       {nullptr, nullptr, false}};

constexpr SectionSchema kSchema = {"rollup", kElements, true, true};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
