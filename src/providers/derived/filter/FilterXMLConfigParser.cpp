// The `filter` section of the reference file: its text, and the attributes it shows.
#include "collection/QueryClassXMLConfigParser.h"
#include "providers/derived/filter/FilterQueryClass.h"

namespace {

class FilterXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    FilterXMLConfigParser() : QueryClassXMLConfigParser("filter") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"raw_attribute_group_name", "filter"});
        return new FilterQueryClass(getText(attributes, "app"), getText(attributes, "ag"),
                                    getText(attributes, "raw_attribute_group_name"), getText(attributes, "filter"));
    }
    Metric* makeMetric(const HashMap* attributes) override {
        const char* source = getText(attributes, "metric_name");
        if (!source) return new Metric;  // for derived attributes; any other gets no value
        auto* metric = new FilterQueryMetric;
        metric->init(source);
        return metric;
    }
};

[[maybe_unused]] FilterXMLConfigParser& filterParser = *new FilterXMLConfigParser;

}  // namespace
