// FormulaCheck: what is wrong, or surely not meant, in one formula.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "collection/rows/RawMetricType.h"
#include "runtime/check/XmlDocument.h"

// What a formula may name.
struct FormulaScope {
    std::vector<const char*> present;  // the cells of its row
    std::vector<const char*> later;    // derived metrics behind it, which are not computed yet
    RAW_METRIC_TYPE type = NUMERIC_DATA;
    bool anyResult = false;            // a text is as good as a number
};

// The problems of a formula; their offsets are bytes into it.
std::vector<Problem> checkFormula(const std::string& formula, const FormulaScope& scope);
