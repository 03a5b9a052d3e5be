// XMLConfigParser::initializeMetric: the attributes that all metric elements share.
#include <cstring>

#include "collection/expression/ExpressionParser.h"
#include "collection/rows/Metric.h"
#include "foundation/HashMap.h"
#include "foundation/Trace.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

void readComputation(Metric* metric, const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* arg1 = XMLConfigParser::getText(attributes, "arg1");
    if (!arg1) return;
    const char* arg2 = XMLConfigParser::getText(attributes, "arg2");
    const char* op = XMLConfigParser::getText(attributes, "op");
    if (!arg2 || !op || !*op) {
        trace_error("Metric %s: arg1 needs arg2 and op beside it; the metric is not computed", metric->getQMPVMetricName());
        return;
    }
    metric->setComputation(arg1, *op, arg2);
}

void yyerror(const char* message) {
    TRACE_MESSAGES();
    trace_error("Error found: %s", message);
}

void readFormula(Metric* metric, const char* formula) {
    TRACE_FUNCTION();
    ParsedFormula parsed = parseFormula(formula);
    if (parsed.tree) {
        metric->setExpression(parsed.tree.release());
        metric->setExpressionFormula(formula);
        return;
    }
    yyerror(parsed.message.c_str());
    // Kept: the value of -1 depends on the tracing; without it the metric has no formula at all.
    if (!trace_is_on(ZTR1_ERROR)) return;
    trace_error("Error parsing expression for metric %s:\n%s\n%s", metric->getQMPVMetricName(), formula,
                caretLine(parsed).c_str());
    trace_error("Due to the expression parsing error, this metric's value will be set to -1.");
    metric->setExpression(new NumberExpression("-1"));
    metric->setExpressionFormula("-1");
}

}  // namespace

void XMLConfigParser::initializeMetric(Metric* metric, const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* name = getText(attributes, "name");
    const char* type = getText(attributes, "type");
    if (!type) trace_error("Metric %s: no type is given; it is a plain number", name ? name : "");
    metric->setQMPVName(name);
    if (const char* metricName = getText(attributes, "metricName")) metric->setMetricName(metricName);
    metric->setRawMetricType(rawMetricTypeFromText(type));
    metric->setIsKey(getBoolean(attributes, "key"));
    metric->setIsHidden(!getBoolean(attributes, "visible"));
    metric->setIsCounter(getBoolean(attributes, "counter"));
    metric->setSize(attributes->contains("size") ? getInteger(attributes, "size") : 4);
    metric->setMapSourceData(getText(attributes, "map"));
    readComputation(metric, attributes);
    if (const char* formula = getText(attributes, "formula")) readFormula(metric, formula);
    if (attributes->contains("scale")) metric->setScale(getInteger(attributes, "scale"));
    metric->setScaleTransparent(getBoolean(attributes, "scaleTransparent"));
    if (attributes->contains("precision")) metric->setPrecision(getInteger(attributes, "precision"));
}
