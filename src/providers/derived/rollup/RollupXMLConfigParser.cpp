// The `rollup` section of the reference file: what it summarises, and the statistics it shows.
#include "collection/QueryClassXMLConfigParser.h"
#include "providers/derived/rollup/RollupClass.h"

namespace {

class RollupXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    RollupXMLConfigParser() : QueryClassXMLConfigParser("rollup") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"rollupAg", "rollupAttr"});
        return new RollupClass(getText(attributes, "app"), getText(attributes, "ag"), getText(attributes, "rollupAg"),
                               getText(attributes, "rollupAttr"), getGlobalQueryClassList());
    }
};

[[maybe_unused]] RollupXMLConfigParser& rollupParser = *new RollupXMLConfigParser;

}  // namespace
