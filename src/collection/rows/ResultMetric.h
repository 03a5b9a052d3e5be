// ResultMetric: one cell, a typed value made from a Metric. ResultInstance: one row, a chain of cells with an instance
// name built from the key cells. Rows are built by one thread and published under their query class's results lock.
#pragma once

#include "collection/rows/Metric.h"
#include "foundation/List.h"
#include "foundation/UTF8String.h"

enum ValueForm : unsigned char {
    FORM_INT = 0,
    FORM_INT64 = 1,
    FORM_STRING = 2,
    FORM_UTF8 = 3,
    FORM_UINT64 = 4,
    FORM_DOUBLE = 6,
};

class ResultMetric : public ListElement {
  public:
    // A scale-transparent metric without a map stores every number as a double. A map replaces the number and keeps it
    // as the raw value.
    ResultMetric(const Metric* metric, long long value);
    ResultMetric(const Metric* metric, int value);
    ResultMetric(const Metric* metric, unsigned long long value);
    ResultMetric(const Metric* metric, double value);
    ResultMetric(const Metric* metric, const char* text);   // a copy; "No value" for null
    ResultMetric(const Metric* metric, UTF8String* text);   // takes over
    // With no metric behind: the names are held as they come, the text is copied (no null test) or taken over.
    ResultMetric(const char* attributeName, const char* metricName, RAW_METRIC_TYPE type, const char* text);
    ResultMetric(const char* attributeName, const char* metricName, RAW_METRIC_TYPE type, UTF8String* text);
    ~ResultMetric() override;
    ResultMetric(const ResultMetric&) = delete;
    ResultMetric& operator=(const ResultMetric&) = delete;

    // Each reads its own field, whatever the form.
    int getMetricValue() const { return value_; }
    long long getMetricValue64() const { return static_cast<long long>(value64_); }
    unsigned long long getMetricValueU64() const { return value64_; }
    double getMetricValueDouble() const { return valueDouble_; }
    const char* getStringValue() const { return string_; }
    UTF8String* getUTF8StringData() const { return utf8_; }
    long long getRawMetricValue() const { return raw_; }  // the number before mapping

    ValueForm form() const { return form_; }
    bool isNumber() const { return form_ == FORM_INT; }
    bool isNumber64() const { return form_ == FORM_INT64; }
    bool isNumberU64() const { return form_ == FORM_UINT64; }
    bool isNumberDouble() const { return form_ == FORM_DOUBLE; }
    bool isString() const { return form_ == FORM_STRING; }
    bool isUTF8String() const { return form_ == FORM_UTF8; }

    // Set the field and the form; names, raw type and flags stay and nothing is mapped.
    void setMetricValue(int value);
    void setMetricValue(long long value);
    void setMetricValue(double value);
    void setMetricValue(char* text);        // takes over a malloc'd text, frees the old one
    void setMetricValue(UTF8String* text);  // takes over, deletes the old one

    RAW_METRIC_TYPE getRawMetricType() const { return static_cast<RAW_METRIC_TYPE>(rawType_); }
    bool isKey() const { return isKey_; }
    void setIsKey(bool on) { isKey_ = on; }
    bool isMappedData() const { return isMapped_; }
    bool isCounter() const { return isCounter_; }
    const char* getQMPVMetricName() const { return attributeName_; }
    const char* getMetricName() const { return metricName_; }

    // Kept: the mapped and counter flags read false on a copy, which others take for a plain value.
    ResultMetric* getDeepCopy() const { return getDeepCopy(nullptr, nullptr); }
    ResultMetric* getDeepCopy(const char* metricName, const char* attributeName) const;
    // By the form of this cell; cells of different forms are never equal.
    bool areValuesEqual(const ResultMetric* other) const;
    // A new object for integers and strings (the caller's), the cell's own for a UTF-8 cell, null for a double.
    UTF8String* toUTF8String() const;

  private:
    ResultMetric() = default;
    explicit ResultMetric(const Metric* metric);
    bool storeScaled(const Metric* metric, double value);

    int value_ = 0;
    signed char rawType_ = 0;
    ValueForm form_ = FORM_INT;
    bool isKey_ : 1 = false;
    bool isMapped_ : 1 = false;
    bool isCounter_ : 1 = false;
    long long raw_ = 0;
    unsigned long long value64_ = 0;
    double valueDouble_ = 0.0;
    char* string_ = nullptr;
    UTF8String* utf8_ = nullptr;
    const char* attributeName_ = nullptr;  // the metric's, which outlives the cell
    const char* metricName_ = nullptr;
};

class ResultInstance : public ListElement {
  public:
    ResultInstance() : ResultInstance("", 0) {}
    // The name stands by until the first key cell arrives.
    ResultInstance(const char* name, int expectedMetricCount);
    ~ResultInstance() override;
    ResultInstance(const ResultInstance&) = delete;
    ResultInstance& operator=(const ResultInstance&) = delete;

    // Takes over the cell: chain, map, count; a key cell joins the instance name (a double one is traced and does not).
    void addMetric(ResultMetric* cell);
    // Takes over the cell: map and derived list only.
    void addDerivedMetric(ResultMetric* cell);
    // The cell of an attribute, the latest one added of several; null if there is none.
    ResultMetric* getMetric(const char* attributeName) const;
    const char* getInstanceName() const { return name_; }
    int getExpectedMetricCount() const { return expectedCount_; }
    int getActualMetricCount() const { return actualCount_; }
    ListCursor getResultMetricList() const { return ListCursor(first_); }
    ResultMetric* firstCell() const { return first_; }
    ListIterator getDerivedIterator() const;
    virtual ResultInstance* getDeepCopy() const;
    const char* getTimestamp() const { return timestamp_; }  // null if there is none
    void setTimestamp(const char* text);

  protected:
    void copyInto(ResultInstance* copy) const;

  private:
    void appendToName(const char* text);
    void enter(ResultMetric* cell);

    char* name_;
    int nameCapacity_;
    int nameLength_;
    int keyCount_ = 0;
    int expectedCount_;
    int actualCount_ = 0;
    ResultMetric* first_ = nullptr;
    ResultMetric* last_ = nullptr;
    // Made when a row has more cells than a short walk covers, so that narrow rows cost no table.
    class CellIndex;
    CellIndex* index_ = nullptr;
    List* derived_ = nullptr;
    char* timestamp_ = nullptr;
};
