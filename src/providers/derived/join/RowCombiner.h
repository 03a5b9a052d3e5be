// Makes the rows of a join from pairs of its sources' rows.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "providers/derived/join/JoinQuery.h"
#include "providers/derived/join/JoinQueryMetric.h"

// Finds cells by attribute name, the first of a name, own cells ahead of derived ones. Rows of one source have the same
// names in the same places as a rule, so names are looked up when the layout changes and not for each row.
class CellLookup {
  public:
    // The names outlive it.
    explicit CellLookup(std::vector<const char*> names) : names_(std::move(names)), places_(names_.size(), kNone) {}
    void setRow(const ResultInstance* row);
    // The cell of the name at this index; null if the row has none.
    const ResultMetric* cell(std::size_t name) const { return places_[name] == kNone ? nullptr : cells_[places_[name]]; }

  private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    void findPlaces();

    std::vector<const char*> names_;
    std::vector<std::size_t> places_;
    std::vector<const ResultMetric*> cells_;  // of the row
    std::vector<const char*> layout_;         // the cells' names, by address
};

class RowCombiner {
  public:
    // `metrics` are the join's in the order of the row. Derived ones, those without a metric name and those that name no
    // source get no cell.
    RowCombiner(ListIterator metrics, const JoinQuery& query1, const JoinQuery& query2);
    // The row of one pair. Kept: a cell is looked up by its attribute name alone, so one that both sources have is always
    // the first side's.
    std::unique_ptr<ResultInstance> combineResultInstances(const ResultInstance* row1, const ResultInstance* row2);

  private:
    enum class Kind { Cell, FirstName, SecondName };
    struct Column {
        const JoinQueryMetric* metric;
        Kind kind;
    };
    RowCombiner(std::vector<Column> columns, const std::vector<const char*>& names)
        : columns_(std::move(columns)), first_(names), second_(names) {}
    static RowCombiner plan(ListIterator metrics, const JoinQuery& query1, const JoinQuery& query2);
    // A copy of the cell of column i under the join's names; null if the row has none.
    ResultMetric* getResultMetric(const CellLookup& row, std::size_t i) const;

    std::vector<Column> columns_;
    CellLookup first_;
    CellLookup second_;
};
