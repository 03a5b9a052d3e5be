#include "providers/local/script/ScriptRows.h"

#include <algorithm>

#include "collection/rows/NumericText.h"
#include "foundation/Trace.h"

namespace {

constexpr int kMostLineEnds = 2;

// Without at most two carriage returns or line feeds at the end. Kept: the first byte of a line always stays.
std::string_view stripNewLine(std::string_view line) {
    for (int cut = 0; cut < kMostLineEnds && line.size() > 1 && (line.back() == '\r' || line.back() == '\n'); ++cut) {
        line.remove_suffix(1);
    }
    return line;
}

bool isText(RAW_METRIC_TYPE type) {
    return type == STRING_DATA || type == VALUE_CHANGED || type == PREVIOUS_STRING_DATA;
}

}  // namespace

ScriptRows::ScriptRows(const Metric* metrics, int count, const char* separator, bool utf8)
    : metrics_(metrics), count_(count), separator_(separator ? separator : ""), utf8_(utf8) {
    for (const char byte : separator_) divides_[static_cast<unsigned char>(byte)] = true;
    line_.reserve(kLongestLine);
}

void ScriptRows::load(std::string_view line) {
    line_.assign(line);
    at_ = 0;
    // Kept: the whole separator text stands behind a line of usual length. Its first byte shows an empty last field,
    // each further one makes an empty field more.
    appended_ = line.size() < kNoSeparatorFrom ? separator_.size() : 0;
}

// The next field, terminated in place; null when nothing is left. Outcome as that of a tokenizer over the line and the
// separator behind it.
const char* ScriptRows::nextField() {
    const std::size_t end = line_.size();
    if (at_ > end || (at_ == end && appended_ == 0)) {
        if (appended_ == 0) return nullptr;
        --appended_;
        return "";
    }
    const std::size_t from = at_;
    while (at_ < end && !divides_[static_cast<unsigned char>(line_[at_])]) ++at_;
    if (at_ < end) {
        line_[at_] = '\0';
    } else if (appended_ > 0) {
        --appended_;
    }
    ++at_;
    return line_.c_str() + from;
}

ResultMetric* ScriptRows::cell(const Metric* metric, const char* field) const {
    if (!isText(metric->getRawMetricType())) return parseNumericString(metric, field);
    auto* text = new UTF8String;
    if (utf8_) {
        text->initFromUTF8String(field);
    } else {
        text->initFromASCIIString(field);
    }
    return new ResultMetric(metric, text);
}

std::unique_ptr<ResultInstance> ScriptRows::row(std::string_view line) {
    TRACE_MESSAGES();
    line = stripNewLine(line);
    load(line);
    auto row = std::make_unique<ResultInstance>("", count_);
    for (const Metric* m = metrics_; m; m = static_cast<const Metric*>(m->getNextElement())) {
        if (m->getMetricType() != 0) continue;
        const char* field = nextField();
        if (!field) break;
        row->addMetric(cell(m, field));
    }
    if (row->getActualMetricCount() == count_) return row;
    trace_error("Missing metrics. Skipping row. expected %d tokens, parsed %d. Input:<%.*s>, separator:<%s>", count_,
                row->getActualMetricCount(), static_cast<int>(line.size()), line.data(), separator_.c_str());
    return nullptr;
}

int ScriptRows::read(OutputLines lines, const Take& take) {
    int rows = 0;
    std::string_view line;
    while (lines.next(kLongestLine, line)) {
        if (std::unique_ptr<ResultInstance> made = row(line)) {
            ++rows;
            take(made.release());
        }
    }
    return rows;
}
