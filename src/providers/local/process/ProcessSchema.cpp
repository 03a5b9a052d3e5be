// What a `process` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kProcess[] = {{"app", A::Text}, {"ag", A::Required}, {"name", A::Required}, {nullptr, A::Text}};

// A metric that is derived from others has no index.
const ElementSchema elements[] = {{"process", kProcess, false},
                                  {"metric", withSharedMetricAttributes({{"index", A::Integer}}), true},
                                  {nullptr, nullptr, false}};

const SectionSchema schema = {"process", elements, true, true};

const bool registered = (registerSectionSchema(&schema), true);

}  // namespace
