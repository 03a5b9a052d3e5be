// What a `script` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kScript[] = {{"app", A::Text},       {"ag", A::Required},          {"command", A::Required},
                         {"separator", A::Required}, {"name", A::Required},    {"utf8_input", A::Boolean},
                         {"ssh", A::Boolean},    {nullptr, A::Text}};
constexpr A kFile[] = {{"Name", A::Required}, {nullptr, A::Text}};

constexpr ElementSchema kElements[] = {{"script", kScript, false},
                                       {"metric", sharedMetricAttributes, true},
                                       {"File", kFile, false},
                                       {nullptr, nullptr, false}};

constexpr SectionSchema kSchema = {"script", kElements, true, true};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
