// The rollup: one numeric attribute of another attribute group, summarised over all its rows into a single row of
// minimum, maximum, average, total and sample standard deviation. Computed in doubles, delivered as 32-bit integers.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "providers/derived/source/SourceClass.h"

// What a rollup gathers of a source's rows.
struct RollupSums {
    int count = 0;
    double min = 0;
    double max = 0;
    double total = 0;
    double sumSquares = 0;
    double mean = 0;         // set by the "Average" attribute alone
    bool lastRowHadIt = false;

    // The cell of one row, null where the row lacks the attribute.
    void add(const ResultMetric* cell);
    // 0 for one value. Kept: it takes `mean` as it stands, so "Average" has to come ahead of it in the group.
    double standardDeviation() const;
};

class RollupClass : public ResultsManager {
  public:
    // As the reference file declares it; sources are looked up in `list`, which outlives this object. Null texts count
    // as empty ones.
    RollupClass(const char* app, const char* ag, const char* rollupAg, const char* rollupAttr, VXClientClassList* list);
    // The copy for a subnode.
    RollupClass(RollupClass* prototype, const char* subnodeKey, VXClientClassList* list);
    ~RollupClass() override = default;

    void printResults() override;
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    List* getQueryReferences() override;
    void releaseQueryReferences() override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return perfObjectName_.c_str(); }
    int getPerfObjectStatus() override { return status_; }
    int getPerfErrorCode() override { return errorCode_; }

    // Truncated toward zero and held within 32 bits; what was outside is traced.
    static int getIntFromDouble(const Metric* metric, double value);

  private:
    // The source, looked up once; null if it cannot be found.
    ResultsManager* source();
    SourceClass findSource() const;
    std::unique_ptr<ResultInstance> makeRow(RollupSums sums) const;

    const std::string rollupAg_;
    const std::string rollupAttr_;
    const std::string perfObjectName_;
    VXClientClassList* classList_;
    SourceClass sourceClass_;
    std::mutex sourceClassLock_;  // of the member alone: no other lock is taken under it
    std::atomic<int> status_{PERF_OBJECT_ACTIVE};
    std::atomic<int> errorCode_{OBJECT_ACTIVE};
};
