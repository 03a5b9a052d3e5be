// The output of a script as rows: a pure function of its bytes and of the metrics.
//
// One row per line, lines ended by a line feed; fields divided by any one byte of the separator; fields go to the
// metrics in their order, surplus ones are ignored, a line with too few is skipped. The first empty line ends the
// output (OutputLines).
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "collection/rows/ResultMetric.h"
#include "exec/OutputLines.h"

class ScriptRows {
  public:
    // A longer line is cut there and its rest is read as a further line, without the byte between.
    static constexpr std::size_t kLongestLine = 10240;
    // Lines from this length on get no separator appended. Kept: an empty last field of such a line is lost.
    static constexpr std::size_t kNoSeparatorFrom = 10238;

    // The metrics are a chain of `count` that outlives this object; with `utf8` texts are UTF-8 already, else they are
    // converted from the process's locale. A null separator divides nothing.
    ScriptRows(const Metric* metrics, int count, const char* separator, bool utf8);

    using Take = std::function<void(ResultInstance* row)>;  // takes over the row
    // Hands each row of the output to `take` and returns their number.
    int read(OutputLines lines, const Take& take);

    // The row of one line, null with an error line if it has too few fields.
    std::unique_ptr<ResultInstance> row(std::string_view line);

  private:
    const char* nextField();
    ResultMetric* cell(const Metric* metric, const char* field) const;
    void load(std::string_view line);

    const Metric* metrics_;
    int count_;
    std::string separator_;
    bool utf8_;
    std::array<bool, 256> divides_{};
    // The line being cut: fields end where a terminator has replaced their delimiter.
    std::string line_;
    std::size_t at_ = 0;
    std::size_t appended_ = 0;  // separator bytes behind the line that have not divided yet
};
