// What a `task` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kTask[] = {{"name", A::Text}, {"key", A::Required}, {"command", A::Required}, {nullptr, A::Text}};
constexpr A kParameter[] = {{"name", A::Required},   {"default", A::Text},     {"quote", A::Text}, {"startDelim", A::Text},
                            {"endDelim", A::Text},   {"overlapDelim", A::Text}, {nullptr, A::Text}};
constexpr A kReturnCode[] = {{"rc", A::RequiredInteger}, {"msg", A::Text}, {"type", A::Text}, {nullptr, A::Text}};

constexpr ElementSchema kElements[] = {{"task", kTask, false},
                                       {"param", kParameter, false},
                                       {"rc", kReturnCode, false},
                                       {nullptr, nullptr, false}};

constexpr SectionSchema kSchema = {"task", kElements, false, false};

const bool registered = (registerSectionSchema(&kSchema), true);

}  // namespace
