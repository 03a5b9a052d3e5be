// What a `join` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kJoin[] = {{"app", A::Text},
                       {"ag", A::Required},
                       {"class1", A::Required},
                       {"class1Attr", A::Text},
                       {"class1Singleton", A::Boolean},
                       {"class2", A::Required},
                       {"class2Attr", A::Text},
                       {"class2Singleton", A::Boolean},
                       {"singleton", A::Boolean},
                       {"pure", A::Boolean},
                       {nullptr, A::Text}};

const ElementSchema kElements[] = {{"join", kJoin, false},
                                   {"metric", withSharedMetricAttributes({{"ag", A::Text}}), true},
                                   {nullptr, nullptr, false}};

const SectionSchema kSchema = {"join", kElements, true, true, true};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
