// Metric: what one column of an attribute group is. Made by the section parsers, read-only once loaded, shared by the
// clones of its query class.
#pragma once

#include <memory>

#include "collection/rows/Expression.h"
#include "collection/rows/RawMetricType.h"
#include "foundation/List.h"

struct map_value {
    int oper;   // 0 eq, 1 ne, 2 lt, 3 gt, 4 lte, 5 gte
    int value;
    int mapped;
};

// What a "map" text holds: a default and triples of operator, value and mapped value.
struct ParsedMap {
    enum Fault { None, Empty, BadEntry, NoMemory };
    Fault fault = None;
    int defaultValue = 0;
    map_value* values = nullptr;  // malloc'd, the caller's
    int count = 0;
};
// A pure function of the text; numbers through atoi.
ParsedMap parseMapText(const char* text);

class Metric : public ListElement {
  public:
    Metric();
    ~Metric() override;
    Metric(const Metric&) = delete;
    Metric& operator=(const Metric&) = delete;

    // The attribute's name in the attribute group. A null name is traced and replaced.
    void setQMPVName(const char* name);
    const char* getQMPVMetricName() const { return attributeName_; }
    // The source's name for the value.
    void setMetricName(const char* name);
    const char* getMetricName() const { return metricName_; }
    void setIsKey(bool on) { isKey_ = on; }
    bool getIsKey() const { return isKey_; }
    void setIsHidden(bool on) { isHidden_ = on; }
    bool getIsHidden() const { return isHidden_; }
    void setSize(int size) { size_ = size; }
    int getSize() const { return size_; }
    int getMetricType() const { return metricType_; }  // always 0: a metric to collect
    void setRawMetricType(RAW_METRIC_TYPE type) { rawMetricType_ = type; }
    RAW_METRIC_TYPE getRawMetricType() const { return rawMetricType_; }
    void setExpression(Expression* expression) { expression_.reset(expression); }  // takes over
    Expression* getExpression() const { return expression_.get(); }
    void setExpressionFormula(const char* formula);
    const char* getExpressionFormula() const { return expressionFormula_; }
    bool isCounter() const { return isCounter_; }
    void setIsCounter(bool on) { isCounter_ = on; }
    void setScale(int scale) { scale_ = scale; }
    int getScale() const { return scale_; }
    void setScaleTransparent(bool on) { scaleTransparent_ = on; }
    bool getScaleTransparent() const { return scaleTransparent_; }
    void setPrecision(int precision) { precision_ = precision; }
    int getPrecision() const { return precision_; }

    // Only for raw type 0, else it is traced and no map kept. A wrong map ends the agent.
    void setMapSourceData(const char* text);
    const char* getMapSourceData() const { return mapSource_; }
    bool hasMap() const { return mapSource_ != nullptr; }
    // The mapped value of the first entry with this value, else the default. Kept: always by equality, whatever the
    // entry's operator.
    int findMappedValue(int value) const;
    void deleteMappedValues();

    // The two operands and the operator of a computed metric.
    void setComputation(const char* arg1, char op, const char* arg2);
    const char* getArg1() const { return arg1_; }
    const char* getArg2() const { return arg2_; }
    char getOp() const { return op_; }
    struct Operand {
        bool isAttribute = false;
        int constant = 0;  // 32 bits
    };
    Operand operand1;
    Operand operand2;

    bool isDerived() const { return op_ != 0 || expression_ != nullptr; }

    // By operator number; compares a map entry's value, on the left, with the given number.
    static bool (*const comparisonFunctions[6])(int left, int right);

  private:
    void parseMapArgs(const char* text);

    char* mapSource_ = nullptr;
    int defaultMappedValue_ = 0;
    map_value* mappedValues_ = nullptr;
    int mappedValueCount_ = 0;
    char* metricName_ = nullptr;
    char* attributeName_ = nullptr;
    int metricType_ = 0;
    RAW_METRIC_TYPE rawMetricType_ = NUMERIC_DATA;
    bool isKey_ = false;
    bool isHidden_ = false;
    int size_ = 0;
    char* arg1_ = nullptr;
    char* arg2_ = nullptr;
    char op_ = 0;
    std::unique_ptr<Expression> expression_;
    char* expressionFormula_ = nullptr;
    bool isCounter_ = false;
    int scale_ = 0;
    bool scaleTransparent_ = false;
    int precision_ = 0;
};
