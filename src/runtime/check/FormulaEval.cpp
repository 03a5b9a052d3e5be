#include "runtime/check/FormulaEval.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "collection/expression/DerivedCell.h"
#include "collection/expression/DerivedStorage.h"
#include "collection/expression/ExpressionParser.h"
#include "runtime/check/FormulaCheck.h"
#include "runtime/check/Words.h"

namespace {

enum { kOk = 0, kSyntax = 1, kUsage = 2 };
constexpr int kMostCollections = 1000000;

void complain(const std::string& text) { std::fprintf(stderr, "almanac: %s\n", text.c_str()); }

// The attributes of the row, each with its values from collection to collection.
struct Variable {
    std::unique_ptr<Metric> metric;
    std::vector<std::string> values;
};

ResultMetric* makeText(const Metric* metric, const std::string& text) {
    auto* utf8 = new UTF8String;
    utf8->initFromUTF8String(text.data(), static_cast<int>(text.size()));
    return new ResultMetric(metric, utf8);
}

ResultMetric* makeCell(const Metric* metric, const std::string& value) {
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        return makeText(metric, value.substr(1, value.size() - 2));
    }
    const std::size_t sign = !value.empty() && (value[0] == '-' || value[0] == '+') ? 1 : 0;
    const std::size_t end = std::min(value.find_first_not_of("0123456789", sign), value.size());
    if (end == sign) return makeText(metric, value);
    const char* const first = value.c_str() + (value[0] == '+' ? 1 : 0);
    const char* const last = value.c_str() + value.size();
    const std::string suffix = value.substr(end);
    long long number = 0;
    unsigned long long unsignedNumber = 0;
    const bool fits = std::from_chars(first, last, number).ec == std::errc();
    const bool fitsUnsigned = value[0] != '-' && std::from_chars(first, last, unsignedNumber).ec == std::errc();
    if (fitsUnsigned && (suffix == "u" || (suffix.empty() && !fits))) return new ResultMetric(metric, unsignedNumber);
    if (fits && suffix.empty() && number >= INT_MIN && number <= INT_MAX) return new ResultMetric(metric, static_cast<int>(number));
    if (fits && (suffix.empty() || suffix == "l")) return new ResultMetric(metric, number);
    double decimal = 0.0;
    const auto parsed = std::from_chars(first, last, decimal);
    const bool isDecimal = suffix.size() > 1 && suffix[0] == '.' && parsed.ec == std::errc() && parsed.ptr == last;
    return isDecimal ? new ResultMetric(metric, decimal) : makeText(metric, value);
}

void print(const ResultMetric& cell) {
    switch (cell.form()) {
        case FORM_INT: std::printf("%d (32-bit integer)\n", cell.getMetricValue()); break;
        case FORM_INT64: std::printf("%lld (64-bit integer)\n", cell.getMetricValue64()); break;
        case FORM_UINT64: std::printf("%llu (unsigned 64-bit integer)\n", cell.getMetricValueU64()); break;
        case FORM_DOUBLE: std::printf("%.15g (double)\n", cell.getMetricValueDouble()); break;
        case FORM_STRING: std::printf("%s (text)\n", cell.getStringValue()); break;
        case FORM_UTF8: std::printf("%s (text)\n", cell.getUTF8StringData()->getUTF8Value()); break;
    }
}

// Under the formula, which may hold characters of several bytes and line feeds.
void show(const std::string& formula, const Problem& problem) {
    complain((problem.severity == Problem::Error ? "" : "warning: ") + problem.text);
    const std::size_t at = std::min(problem.offset, formula.size());
    const std::size_t before = at == 0 ? std::string::npos : formula.rfind('\n', at - 1);
    const std::size_t start = before == std::string::npos ? 0 : before + 1;
    std::string caret;
    for (std::size_t i = start; i < at; ++i) {
        if ((static_cast<unsigned char>(formula[i]) & 0xC0) != 0x80) caret += formula[i] == '\t' ? '\t' : ' ';
    }
    const std::size_t end = std::min(formula.find('\n', at), formula.size());
    std::fprintf(stderr, "    %s\n    %s^\n", formula.substr(start, end - start).c_str(), caret.c_str());
}

bool readVariables(int count, char** arguments, std::vector<Variable>* variables) {
    for (int i = 0; i < count; ++i) {
        const char* equals = std::strchr(arguments[i], '=');
        if (!equals || equals == arguments[i]) {
            complain(std::string("--set takes NAME=VALUE, not '") + arguments[i] + "'");
            return false;
        }
        const std::string name(arguments[i], static_cast<std::size_t>(equals - arguments[i]));
        auto found = std::find_if(variables->begin(), variables->end(),
                                  [&](const Variable& v) { return name == v.metric->getQMPVMetricName(); });
        if (found == variables->end()) {
            found = variables->emplace(variables->end());
            found->metric = std::make_unique<Metric>();
            found->metric->setQMPVName(name.c_str());
        }
        found->values.emplace_back(equals + 1);
    }
    return true;
}

bool readType(const char* text, Metric* metric) {
    const RAW_METRIC_TYPE type = rawMetricTypeFromText(text);
    metric->setRawMetricType(type);
    if (type != NUMERIC_DATA || !*text || std::strcmp(text, "NUMERIC_DATA") == 0) return true;
    std::vector<const char*> known = {"NUMERIC_DATA"};
    for (int i = 1; i <= PERCENT_DELTA_64BIT_DATA; ++i) {
        if (const char* name = rawMetricTypeText(i)) known.push_back(name);
    }
    complain(std::string("unknown type '") + text + "'" + didYouMean(text, known));
    return false;
}

}  // namespace

int evaluateAtPrompt(int count, char** arguments) {
    if (count < 3) return kUsage;
    const std::string formula = arguments[0];
    Metric metric;
    metric.setQMPVName("RESULT");
    std::vector<Variable> variables;
    if (!readType(arguments[1], &metric) || !readVariables(count - 3, arguments + 3, &variables)) return kUsage;
    int collections = std::min(std::atoi(arguments[2]), kMostCollections);
    FormulaScope scope;
    scope.type = metric.getRawMetricType();
    scope.anyResult = !*arguments[1];
    for (const Variable& v : variables) {
        scope.present.push_back(v.metric->getQMPVMetricName());
        if (std::atoi(arguments[2]) == 0) collections = std::max(collections, static_cast<int>(v.values.size()));
    }
    for (const Problem& p : checkFormula(formula, scope)) show(formula, p);
    metric.setExpression(parseFormula(formula.c_str()).tree.release());
    if (!metric.getExpression()) return kSyntax;
    DerivedStorage storage;
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(collections, 1)); ++i) {
        ResultInstance row("row", 0);
        for (const Variable& v : variables) row.addMetric(makeCell(v.metric.get(), v.values[std::min(i, v.values.size() - 1)]));
        const std::unique_ptr<ResultMetric> cell(computeDerivedCell(&metric, &row, &storage));
        print(*cell);
    }
    return kOk;
}
