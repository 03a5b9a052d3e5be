// TextTable: rows as columns of text for people. Widths count code points; numbers stand to the right.
#pragma once

#include <string>
#include <vector>

namespace almanac::cli {

// Whether to write colours and bold to standard output: a terminal, and NO_COLOR not set (https://no-color.org).
bool useColour();

class TextTable {
  public:
    void addColumn(std::string title, bool right) { columns_.push_back({std::move(title), right, 0}); }
    void addRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    // The header line and the rows, each ended by a line feed; control bytes are shown as '?'.
    std::string text(bool bold) const;

  private:
    struct Column {
        std::string title;
        bool right;
        std::size_t width;
    };
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace almanac::cli
