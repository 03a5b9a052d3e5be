// The `config_discovery` section of the reference file: the type whose sections announce subnodes.
#include "collection/QueryClassXMLConfigParser.h"
#include "providers/derived/config_discovery/ConfigDiscoveryQueryClass.h"

namespace {

class ConfigDiscoveryXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    ConfigDiscoveryXMLConfigParser() : QueryClassXMLConfigParser("config_discovery") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"ag", "subnode_type", "subnode_affinity_value"});
        return new ConfigDiscoveryQueryClass(getText(attributes, "app"), getText(attributes, "ag"),
                                             getText(attributes, "subnode_type"), getText(attributes, "subnode_affinity_value"));
    }
};

[[maybe_unused]] ConfigDiscoveryXMLConfigParser& configDiscoveryParser = *new ConfigDiscoveryXMLConfigParser;

}  // namespace
