// What a `process` section may hold.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kProcess[] = {{"app", A::Text}, {"ag", A::Required}, {"name", A::Required}, {nullptr, A::Text}};

// The indexes of ProcessFigure; any other is a figure that this platform lacks.
constexpr const char* kFigures[] = {"0",  "1",  "2",  "3",  "4",  "5",  "6",  "7",  "8",  "9",  "10",   "11",
                                    "12", "13", "14", "15", "20", "21", "22", "23", "24", "25", nullptr};

// A metric that is derived from others has no index.
const ElementSchema elements[] = {{"process", kProcess, false},
                                  {"metric", withSharedMetricAttributes({{"index", A::Integer, kFigures}}), true},
                                  {nullptr, nullptr, false}};

const SectionSchema schema = {"process", elements, true, true};

const bool registered = (registerSectionSchema(&schema), true);

}  // namespace
