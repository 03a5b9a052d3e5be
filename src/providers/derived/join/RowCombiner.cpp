#include "providers/derived/join/RowCombiner.h"

#include <cstring>
#include <unordered_map>

namespace {

constexpr const char* kNameMetric = "Name";
constexpr int kNameSize = 100;

}  // namespace

void JoinQueryMetric::copy(const Metric* source) {
    // Kept: nothing else is taken over. A source's scale, say, needs a metric element in the join.
    setIsKey(source->getIsKey());
    setIsHidden(source->getIsHidden());
    // Rows are searched by attribute name, and the metric name may be missing or differ from it.
    setMetricName(source->getQMPVMetricName());
    setRawMetricType(source->getRawMetricType());
    setSize(source->getSize());
    setQMPVName(source->getQMPVMetricName());
}

JoinQueryMetric* createPerfmonNameMetric(const char* attributeGroup) {
    auto* metric = new JoinQueryMetric;
    metric->init(attributeGroup);
    metric->setQMPVName(kNameMetric);
    metric->setMetricName(kNameMetric);
    metric->setIsKey(true);
    metric->setSize(kNameSize);
    metric->setRawMetricType(STRING_DATA);
    return metric;
}

ResultMetric* createPerfmonNameResultMetric(const ResultInstance* row) {
    return new ResultMetric(kNameMetric, kNameMetric, STRING_DATA, row->getInstanceName());
}

void CellLookup::setRow(const ResultInstance* row) {
    cells_.clear();
    bool known = true;
    const auto take = [&](const ResultMetric* cell) {
        known = known && cells_.size() < layout_.size() && layout_[cells_.size()] == cell->getQMPVMetricName();
        cells_.push_back(cell);
    };
    for (const ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) take(cell);
    for (ListIterator derived = row->getDerivedIterator(); derived.hasNext();) {
        take(static_cast<const ResultMetric*>(derived.next()));
    }
    if (!known || cells_.size() != layout_.size()) findPlaces();
}

void CellLookup::findPlaces() {
    std::unordered_map<std::string_view, std::size_t> first;
    layout_.clear();
    for (const ResultMetric* cell : cells_) {
        const char* name = cell->getQMPVMetricName();
        if (name) first.try_emplace(name, layout_.size());
        layout_.push_back(name);
    }
    for (std::size_t i = 0; i < names_.size(); ++i) {
        const auto found = first.find(names_[i]);
        places_[i] = found == first.end() ? kNone : found->second;
    }
}

RowCombiner::RowCombiner(ListIterator metrics, const JoinQuery& query1, const JoinQuery& query2)
    : RowCombiner(plan(metrics, query1, query2)) {}

RowCombiner RowCombiner::plan(ListIterator metrics, const JoinQuery& query1, const JoinQuery& query2) {
    const auto named = [](const JoinQuery& query) {
        const ResultsManager* source = query.getClientClass();
        return source && source->getObjectType() == VX_PROCESS && source->doResultsReturnInstName();
    };
    std::vector<Column> columns;
    std::vector<const char*> names;
    while (metrics.hasNext()) {
        const auto* metric = static_cast<const Metric*>(metrics.next());
        const auto* column = dynamic_cast<const JoinQueryMetric*>(metric);
        if (!column || column->isDerived() || !column->getMetricName()) continue;
        const bool ofFirst = std::strcmp(column->getAttributeGroup(), query1.getClassName()) == 0;
        Kind kind = Kind::Cell;
        if (std::strcmp(column->getMetricName(), kNameMetric) == 0 && named(ofFirst ? query1 : query2)) {
            kind = ofFirst ? Kind::FirstName : Kind::SecondName;
        }
        columns.push_back({column, kind});
        names.push_back(column->getMetricName());
    }
    return RowCombiner(std::move(columns), names);
}

ResultMetric* RowCombiner::getResultMetric(const CellLookup& row, std::size_t i) const {
    const ResultMetric* cell = row.cell(i);
    if (!cell) return nullptr;
    return cell->getDeepCopy(columns_[i].metric->getMetricName(), columns_[i].metric->getQMPVMetricName());
}

std::unique_ptr<ResultInstance> RowCombiner::combineResultInstances(const ResultInstance* row1, const ResultInstance* row2) {
    auto row = std::make_unique<ResultInstance>("DO_NOT_NEED_A_NAME", 0);
    first_.setRow(row1);
    second_.setRow(row2);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (columns_[i].kind != Kind::Cell) {
            row->addMetric(createPerfmonNameResultMetric(columns_[i].kind == Kind::FirstName ? row1 : row2));
            continue;
        }
        ResultMetric* cell = getResultMetric(first_, i);
        if (!cell) cell = getResultMetric(second_, i);
        if (cell) row->addMetric(cell);
    }
    return row;
}
