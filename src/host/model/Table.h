// Plain values that describe a table: its columns and how a row of bytes is laid out. Immutable once made and
// shared between threads through std::shared_ptr<const TableLayout>.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace almanac::host {

enum class ColumnKind { Int16, Int32, Int64, Text };

// One column. Integers are in the host's byte order, texts blank padded and not terminated.
struct Column {
    std::string name;
    std::string hint;        // display hint as declared (RFC 2579, 3.1), empty if there is none
    std::size_t offset = 0;  // bytes from the start of the row
    std::size_t length = 0;  // bytes
    int type = 0;            // the framework's number of the type (HBX_ColumnType)
    ColumnKind kind = ColumnKind::Text;
    int decimals = 0;  // of an integer column with the hint "d-N": N, 0 to 18; else 0
};

// "int16", "int32", "int64" or "text".
const char* columnTypeName(ColumnKind kind);

// N of an integer's display hint "d-N" (RFC 2579, 3.1: N implied decimal places), 0 for any other hint and
// for an N outside 0 to 18.
int hintDecimals(std::string_view hint);

struct TableLayout {
    std::string application;
    std::string name;
    std::vector<Column> columns;
    std::size_t rowSize = 0;  // bytes: the end of the column that ends last

    // The column of that name: the exact name first, then the only one that differs in the case of ASCII
    // letters alone; null if there is none or it is ambiguous.
    const Column* find(std::string_view wanted) const;
    // The known column name nearest to `wanted` (at most 2 edits and less than half of its length away), else
    // "".
    std::string nearest(std::string_view wanted) const;
};

// ASCII case folding, which is what names of tables and columns are compared by.
bool equalsNoCase(std::string_view a, std::string_view b);

// The name among `names` that is at most 2 edits (and less than half of its length) away from `wanted`, else
// "".
std::string nearestName(std::string_view wanted, const std::vector<std::string_view>& names);

// The integer in `row` at the column's place, sign-extended. Columns of a length other than 2 and 8 are read
// as 4 bytes or as many as there are.
long long readInteger(const Column& column, const char* row);

// The text in `row` at the column's place without its padding (trailing blanks and NUL bytes).
std::string_view readText(const Column& column, const char* row);

}  // namespace almanac::host
