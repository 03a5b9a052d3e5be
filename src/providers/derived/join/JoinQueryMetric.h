// A column of a join: an attribute of one of its sources, under a name of the join's own.
#pragma once

#include <string>

#include "collection/rows/ResultMetric.h"

class JoinQueryMetric : public Metric {
  public:
    void init(const char* attributeGroup) { attributeGroup_ = attributeGroup ? attributeGroup : ""; }
    const char* getAttributeGroup() const { return attributeGroup_.c_str(); }
    // Makes this the column of a source's metric.
    void copy(const Metric* source);

  private:
    std::string attributeGroup_;
};

// The column, and the cell of one row, for a source whose rows are known by their instance name.
JoinQueryMetric* createPerfmonNameMetric(const char* attributeGroup);
ResultMetric* createPerfmonNameResultMetric(const ResultInstance* row);
