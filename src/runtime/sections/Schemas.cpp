// The schemas of the agent's own sections.
#include "runtime/reference/SectionSchema.h"

namespace {

using A = AttributeSchema;

constexpr A kAppl[] = {{"name", A::Required},     {"nodeType", A::Text},     {"hostName", A::Text},
                       {"hostType", A::Text},     {"affinity", A::Text},     {"agentVersion", A::Text},
                       {"version", A::Text},      {"service", A::Text},      {"internalAgentVersion", A::Text},
                       {nullptr, A::Text}};
constexpr A kName[] = {{"name", A::Required}, {nullptr, A::Text}};
constexpr A kNone[] = {{nullptr, A::Text}};
constexpr A kGroup[] = {{"table", A::Required},
                        {"name", A::Required},
                        {"pure", A::Boolean},
                        {"discovery_attribute_group", A::Boolean},
                        {"subnode_type", A::Text},
                        {nullptr, A::Text}};
constexpr A kAttribute[] = {{"name", A::Required},
                            {"hint", A::Text},
                            {"type", A::RequiredInteger},
                            {"size", A::RequiredInteger},
                            {nullptr, A::Text}};
constexpr A kEnum[] = {{"enumeration", A::Required}, {"error_code", A::Required}, {nullptr, A::Text}};

constexpr ElementSchema kApplElements[] = {{"appl", kAppl, false}, {nullptr, nullptr, false}};
constexpr ElementSchema kVariableElements[] = {{"env_variable", kName, false}, {nullptr, nullptr, false}};
constexpr ElementSchema kRepeatableElements[] = {{"repeatable_section", kName, false}, {nullptr, nullptr, false}};
constexpr ElementSchema kMetadataElements[] = {{"metadata", kNone, false},
                                               {"ag", kGroup, false},
                                               {"attr", kAttribute, false},
                                               {"receive_req", kName, false},
                                               {nullptr, nullptr, false}};
constexpr ElementSchema kEnumElements[] = {{"perf_object_enum_list", kNone, false},
                                           {"perf_object_enum", kEnum, false},
                                           {nullptr, nullptr, false}};

constexpr SectionSchema kSchemas[] = {{"appl", kApplElements, false, false},
                                      {"env_variable", kVariableElements, false, false},
                                      {"repeatable_section", kRepeatableElements, false, false},
                                      {"metadata", kMetadataElements, false, false},
                                      {"perf_object_enum_list", kEnumElements, false, false}};

const bool registered = [] {
    for (const SectionSchema& schema : kSchemas) registerSectionSchema(&schema);
    return true;
}();

}  // namespace
