#include "providers/derived/rollup/RollupClass.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "foundation/Convert.h"
#include "foundation/Trace.h"

namespace {

double valueOf(const ResultMetric* cell) {
    switch (cell->form()) {
        case FORM_INT64:
            return static_cast<double>(cell->getMetricValue64());
        case FORM_UINT64:
            return static_cast<double>(cell->getMetricValueU64());
        case FORM_DOUBLE:
            return cell->getMetricValueDouble();
        default:
            return cell->getMetricValue();
    }
}

// The value of one attribute of the rollup's row; false for a name that has no meaning.
bool statistic(const char* name, RollupSums& sums, double* value) {
    const auto is = [name](const char* known) { return std::strcmp(name, known) == 0; };
    if (is("Minimum")) {
        *value = sums.min;
    } else if (is("Maximum")) {
        *value = sums.max;
    } else if (is("Total")) {
        *value = sums.total;
    } else if (is("Average")) {
        *value = sums.mean = sums.total / sums.count;
    } else if (is("Standard_Deviation")) {
        *value = sums.standardDeviation();
    } else {
        return false;
    }
    return true;
}

}  // namespace

void RollupSums::add(const ResultMetric* cell) {
    lastRowHadIt = cell != nullptr;
    if (!cell) return;
    const double value = valueOf(cell);
    if (count == 0) min = max = value;
    min = std::min(min, value);
    max = std::max(max, value);
    total += value;
    sumSquares += value * value;
    ++count;
}

double RollupSums::standardDeviation() const {
    if (count == 1) return 0;
    const double variance = (mean * mean * count + (sumSquares - 2 * mean * total)) / (count - 1);
    return variance < 0 ? 0 : std::pow(variance, 0.5);  // below 0 by rounding alone
}

RollupClass::RollupClass(const char* app, const char* ag, const char* rollupAg, const char* rollupAttr,
                         VXClientClassList* list)
    : ResultsManager(app, ag, VX_ROLLUP),
      rollupAg_(rollupAg ? rollupAg : ""),
      rollupAttr_(rollupAttr ? rollupAttr : ""),
      perfObjectName_(rollupAg_ + ":" + rollupAttr_),
      classList_(list) {
    setThreadPoolEligible(false);
}

RollupClass::RollupClass(RollupClass* prototype, const char* subnodeKey, VXClientClassList* list)
    : ResultsManager(prototype, subnodeKey, true),
      rollupAg_(prototype->rollupAg_),
      rollupAttr_(prototype->rollupAttr_),
      perfObjectName_(prototype->perfObjectName_),
      classList_(list) {
    setThreadPoolEligible(false);
}

void RollupClass::printResults() { traceResults(ZTR1_STATE, "Instances and Values for Rollup class"); }

VXClientClass* RollupClass::subnodeCopy(const char* subnodeKey, VXClientClassList* list) {
    return new RollupClass(this, subnodeKey, list);
}

List* RollupClass::getQueryReferences() {
    std::lock_guard guard(sourceClassLock_);
    if (!sourceClass_ || sourceClass_.get() == this) return nullptr;
    auto* references = new List;
    references->add(static_cast<VXClientClass*>(sourceClass_.get()));
    return references;
}

void RollupClass::releaseQueryReferences() {
    std::lock_guard guard(sourceClassLock_);
    sourceClass_ = SourceClass();
}

int RollupClass::getIntFromDouble(const Metric* metric, double value) {
    TRACE_MESSAGES();
    const double whole = std::trunc(value);
    if (whole > 2147483647.0) {
        trace_error("Metric %s value %lld exceeds maximum for an integer", metric->getQMPVMetricName(), convert::toInt64(whole));
        return 2147483647;
    }
    if (whole < -2147483648.0) {
        trace_error("Metric %s value %lld exceeds minimum for an integer", metric->getQMPVMetricName(), convert::toInt64(whole));
    }
    return convert::toInt32(whole);  // below the range, and NaN: the minimum
}

SourceClass RollupClass::findSource() const {
    TRACE_FUNCTION();
    trace_detail("Looking up client class for rollup.");
    const char* key = getSubnodeKey();
    if (!key) return SourceClass(classList_ ? classList_->getClientClass(rollupAg_.c_str()) : nullptr);
    VXClientClassList* all = getGlobalQueryClassList();
    VXClientClass* prototype = all ? all->getClientClass(rollupAg_.c_str()) : nullptr;
    if (!prototype) {
        trace_error("Prototype for subnode %s query class %s lookup failed", key, rollupAg_.c_str());
        return SourceClass();
    }
    SourceClass found = sourceInSubnode(prototype, key, this);
    if (!found) {
        trace_error("Prototype for subnode %s query class %s lookup failed probably during subnode remove", key,
                    rollupAg_.c_str());
    } else if (found.get() == prototype) {
        trace_detail("Using base class, not a subnode %s", rollupAg_.c_str());
    }
    return found;
}

ResultsManager* RollupClass::source() {
    {
        std::lock_guard guard(sourceClassLock_);
        if (sourceClass_) return sourceClass_.get();
    }
    SourceClass found = findSource();
    std::lock_guard guard(sourceClassLock_);
    if (!sourceClass_) sourceClass_ = std::move(found);
    return sourceClass_.get();
}

void RollupClass::internalCollectData(const char* requestId) {
    TRACE_FUNCTION();
    if (status_ != PERF_OBJECT_ACTIVE) return;
    ResultsManager* rows = source();
    if (!rows) {
        errorCode_ = CANNOT_FIND_ROLLUP_AG;
        status_ = PERF_OBJECT_INACTIVE;
        return;
    }
    rows->collectDataIfNeeded(requestId);
    RollupSums sums;
    {
        const ResultsGuard guard(rows);
        trace_detail("Beginning rollup of %s", rollupAg_.c_str());
        for (ListCursor c = rows->getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
            sums.add(findCell(static_cast<ResultInstance*>(c.getCurrentElement()), rollupAttr_.c_str()));
        }
    }
    trace_detail("Finished with all instances of %s", rollupAg_.c_str());
    // Kept: the last row decides; a source without rows counts as one that lacks the attribute.
    if (!sums.lastRowHadIt) {
        trace_error("Instances of \"%s\" do not have metric %s", rollupAg_.c_str(), rollupAttr_.c_str());
        errorCode_ = CANNOT_FIND_ROLLUP_ATTRIBUTE;
        return;
    }
    errorCode_ = OBJECT_ACTIVE;
    std::unique_ptr<ResultInstance> row = makeRow(sums);
    if (row->getActualMetricCount() == row->getExpectedMetricCount()) {
        addResultInstance(row.release());
        return;
    }
    trace_error("Metric countValues don't match expected %d != %d", row->getExpectedMetricCount(), row->getActualMetricCount());
}

std::unique_ptr<ResultInstance> RollupClass::makeRow(RollupSums sums) const {
    TRACE_FUNCTION();
    auto row = std::make_unique<ResultInstance>("", getMetricCount());
    for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* metric = static_cast<const Metric*>(c.getCurrentElement());
        double value = 0;
        if (statistic(metric->getQMPVMetricName(), sums, &value)) {
            row->addMetric(new ResultMetric(metric, getIntFromDouble(metric, value)));
        } else {
            trace_error("FAILED to matched metric %s", metric->getQMPVMetricName());
        }
    }
    return row;
}
