// What the sections `process_list` and `app_ping_list` may hold.
#include "exec/ReturnCodeListElement.h"
#include "providers/local/availability/AvailabilityList.h"
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kNone[] = {{nullptr, A::Text}};
constexpr A kProcess[] = {{"name", A::Required},
                          {"procname", A::Required},
                          {"fullname", A::Text},
                          {"arg", A::Text},
                          {"value", A::Text},
                          {"matchfullname", A::Boolean},
                          {"matcharg", A::Boolean},
                          {"matchfullarg", A::Boolean},
                          {"matchargwithvalue", A::Boolean},
                          {"includeChildProcesses", A::Boolean},
                          {"childApplicationCompName", A::Text},
                          {nullptr, A::Text}};
constexpr A kTest[] = {{"name", A::Required}, {"script", A::Required}, {nullptr, A::Text}};
constexpr A kReturnCode[] = {{"rc", A::RequiredInteger},
                             {"msg", A::Text},
                             {"type", A::Required, returnCodeTypes},
                             {nullptr, A::Text}};

constexpr ElementSchema kProcessElements[] = {{"process_list", kNone, false},
                                              {"process", kProcess, false},
                                              {nullptr, nullptr, false}};
constexpr ElementSchema kTestElements[] = {{"app_ping_list", kNone, false},
                                           {"app_ping", kTest, false},
                                           {"rc", kReturnCode, false},
                                           {nullptr, nullptr, false}};

constexpr const char* kFills = AvailabilityList::kAttributeGroup;
constexpr SectionSchema kSchemas[] = {{"process_list", kProcessElements, false, false, false, kFills},
                                      {"app_ping_list", kTestElements, false, false, false, kFills}};

const bool registered = [] {
    for (const SectionSchema& schema : kSchemas) registerSectionSchema(&schema);
    return true;
}();

}  // namespace
