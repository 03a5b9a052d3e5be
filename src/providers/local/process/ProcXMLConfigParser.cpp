// The `process` section of the reference file.
#include "collection/QueryClassXMLConfigParser.h"
#include "foundation/HashMap.h"
#include "providers/local/process/ProcessQueryClass.h"

namespace {

class ProcXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    ProcXMLConfigParser() : QueryClassXMLConfigParser("process") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"ag", "name"});
        return new ProcessQueryClass(getText(attributes, "app"), getText(attributes, "ag"), getText(attributes, "name"));
    }
    Metric* makeMetric(const HashMap* attributes) override {
        if (!getText(attributes, "index")) return new Metric;
        return new ProcessQueryMetric(getText(attributes, "name"), getInteger(attributes, "index"));
    }
};

[[maybe_unused]] ProcXMLConfigParser& procParser = *new ProcXMLConfigParser;

}  // namespace
