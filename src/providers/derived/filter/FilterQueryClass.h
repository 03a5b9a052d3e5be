// The filter: those rows of one or more other attribute groups that satisfy an expression, with attributes selected and
// given new names. Rows of several groups follow each other in the order of the groups' names.
//
// A filter that cannot be read makes the class inactive. So does a row whose attribute is missing or no text; the rows
// after it are shown all the same, but status and code stay. An attribute group that is not found is looked for again at
// the next collection.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "providers/derived/filter/FilterExpression.h"
#include "providers/derived/source/SourceClass.h"

// A column of a filter: an attribute of its sources, under a name of the filter's own.
class FilterQueryMetric : public Metric {
  public:
    void init(const char* rawClassMetricName) { rawClassMetricName_ = rawClassMetricName ? rawClassMetricName : ""; }
    const char* getRawClassMetricName() const { return rawClassMetricName_.c_str(); }

  private:
    std::string rawClassMetricName_;
};

class FilterQueryClass : public ResultsManager {
  public:
    // As the reference file declares it. `rawGroupNames` is divided by commas. Null texts count as empty ones.
    FilterQueryClass(const char* app, const char* ag, const char* rawGroupNames, const char* filter);
    // The copy for a subnode.
    FilterQueryClass(FilterQueryClass* prototype, const char* subnodeKey);
    ~FilterQueryClass() override = default;

    void printResults() override;
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    List* getQueryReferences() override;
    void releaseQueryReferences() override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return attributeGroupName_.c_str(); }
    int getPerfObjectStatus() override { return status_; }
    int getPerfErrorCode() override { return errorCode_; }

    // Whether the row is shown; sets code and status where the filter has no answer.
    bool matchesExpression(const ResultInstance* row);
    // The class behind the name: this subnode's own, else that of the reference file. Empty if there is none, or only
    // this class itself.
    SourceClass getRawAttributeGroup(const char* name) const;

  private:
    using Sources = std::vector<SourceClass>;
    struct Column {
        const Metric* metric;
        const char* source;  // null if the metric names none
    };

    void readSettings();
    // The sources, looked up once; null if one is missing, and then nothing is kept.
    const Sources* rawClasses();
    SourceClass cloneOfThisSubnode(const char* name) const;
    std::vector<Column> columns() const;
    void takeRows(ResultsManager* source, const std::vector<Column>& columns);
    void takeRow(const ResultInstance* source, const std::vector<Column>& columns);

    const std::string rawGroupNames_;
    std::unique_ptr<Sources> rawClasses_;
    std::mutex rawClassesLock_;  // of the pointer alone: no other lock is taken under it
    const std::string filterText_;
    const FilterExpression filterExpression_;
    const std::string attributeGroupName_;
    std::atomic<int> status_{PERF_OBJECT_ACTIVE};
    std::atomic<int> errorCode_{OBJECT_ACTIVE};
};
