// From row buffers to text: JSON objects, NDJSON lines, CSV records. Texts lose their padding and get invalid
// UTF-8 replaced; an integer with implied decimals is written as the decimal number it stands for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/model/Batch.h"

namespace almanac::host {

enum class RowFormat { Json, Ndjson, Csv };

// "application/json", "application/x-ndjson" or "text/csv".
const char* mediaType(RowFormat format);

// Writes rows of one layout, with all columns or a choice of them. The layout must outlive the writer.
class RowWriter {
  public:
    // `columns` gives the columns to write, in order; empty for all.
    RowWriter(const TableLayout& layout, const std::vector<const Column*>& columns);

    // One row as a JSON object, without anything behind it.
    void appendObject(std::string* out, const char* row) const;
    // One row as a CSV record with its CR LF (RFC 4180).
    void appendRecord(std::string* out, const char* row) const;
    // The CSV header record.
    void appendHeader(std::string* out) const;

    // All rows: a JSON array, NDJSON lines, or CSV with its header.
    void appendRows(std::string* out, const Batch& batch, RowFormat format) const;

  private:
    struct Field {
        const Column* column;
        std::string prefix;  // `{"name":` or `,"name":`
    };
    std::vector<Field> fields_;
};

}  // namespace almanac::host
