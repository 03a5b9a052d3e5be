// The `join` section of the reference file: its two sides, and the metrics it shows of them.
#include "collection/QueryClassXMLConfigParser.h"
#include "providers/derived/join/Join2VXClientClasses.h"

namespace {

class JoinXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    JoinXMLConfigParser() : QueryClassXMLConfigParser("join") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"class1", "class2"});
        const bool both = getBoolean(attributes, "singleton");
        const auto side = [&](const char* name, const char* attribute, const char* singleton) {
            return new JoinQuery(getText(attributes, name), getText(attributes, attribute), both || getBoolean(attributes, singleton));
        };
        JoinQuery* first = side("class1", "class1Attr", "class1Singleton");
        JoinQuery* second = side("class2", "class2Attr", "class2Singleton");
        return new Join2VXClientClasses(getText(attributes, "app"), getText(attributes, "ag"), first, second,
                                        getGlobalQueryClassList(), getBoolean(attributes, "pure"));
    }
    Metric* makeMetric(const HashMap* attributes) override {
        const char* source = getText(attributes, "ag");
        if (!source) return new Metric;  // for derived attributes; any other gets no value
        auto* metric = new JoinQueryMetric;
        metric->init(source);
        return metric;
    }
};

[[maybe_unused]] JoinXMLConfigParser& joinParser = *new JoinXMLConfigParser;

}  // namespace
