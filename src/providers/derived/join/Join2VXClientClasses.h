// The join: an attribute group whose rows are those of two other groups, matched on an attribute of each or, where a
// side is a singleton, paired with that side's only row. An inner join: a row without a partner gives no row, and of
// several partners the first counts. A pure event based join sends a row for each event of a source.
//
// Both sources are looked up at the first collection. An attribute group that is not found then makes the join inactive
// for the life of the process; a side without rows only gives an error code and no rows.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "providers/derived/join/RowCombiner.h"

class Join2VXClientClasses : public ResultsManager {
  public:
    // As the reference file declares it; takes over the sides. Sources are looked up in `list`, which outlives this
    // object.
    Join2VXClientClasses(const char* app, const char* ag, JoinQuery* query1, JoinQuery* query2, VXClientClassList* list,
                         bool pure);
    // The copy for a subnode. It has lists of its own if the prototype takes its metrics from the sources.
    Join2VXClientClasses(Join2VXClientClasses* prototype, const char* subnodeKey);
    ~Join2VXClientClasses() override;

    void printResults() override;
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    List* getQueryReferences() override;
    void releaseQueryReferences() override;
    void addMetricObject(Metric* metric) override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return perfObjectName_.c_str(); }
    int getPerfObjectStatus() override { return status_; }
    int getPerfErrorCode() override { return errorCode_; }

    // Sends the joined row of one event, which stays the caller's: the first rows of both sides are paired, an event
    // based side's row is the event. Any number of threads at once.
    void processEventData(ResultInstance* eventRow);
    const JoinQuery* getFirstQuery() const { return query1_.get(); }
    const JoinQuery* getSecondQuery() const { return query2_.get(); }

    // How many joins there are, templates and copies.
    static int count();

  private:
    // One pass: the rows of both sides, and the results locks of the sources they are read from.
    struct Pass {
        explicit Pass(const Join2VXClientClasses& join) : first(join.query1_.get()), second(join.query2_.get()) {}
        JoinRows first;
        JoinRows second;
        std::optional<ResultsGuard> locks;
    };

    // Collects the sources as needed. True if both sides have rows: then the pass holds their locks. Sets the error code
    // and, for a fault that stays, the status.
    bool okToJoin(const char* requestId, ResultInstance* eventRow, Pass& pass);
    PERF_OBJECT_ERROR_CODE readSides(const char* requestId, ResultInstance* eventRow, Pass& pass);
    PERF_OBJECT_ERROR_CODE readSide(const char* requestId, ResultInstance* eventRow, JoinRows& side);
    void join(Pass& pass);
    // Looks both sources up, once. False if one is missing.
    bool resolve();
    SourceClass initQuery(const JoinQuery& query) const;
    // The columns of a join without metrics of its own, once both sources have rows and with them their columns.
    void buildMetrics();
    void updateMetricList(const ResultsManager* source);
    void updateJoinAttribute(JoinQuery* query);

    std::unique_ptr<JoinQuery> query1_;
    std::unique_ptr<JoinQuery> query2_;
    std::mutex clientClassLock_;  // of the sides' classes and of building the metrics; no other lock is taken under it
    bool resolved_ = false;
    std::atomic<int> status_{PERF_OBJECT_ACTIVE};
    std::atomic<int> errorCode_{OBJECT_ACTIVE};
    VXClientClassList* classList_;
    std::string perfObjectName_;
    bool metricsFromFile_ = false;
    bool metricsBuilt_ = false;
};
