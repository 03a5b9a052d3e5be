#include "host/model/RowWriter.h"

#include "host/model/Json.h"

namespace almanac::host {
namespace {

// RFC 4180, 2: a field with a comma, a quote or a line end stands in quotes, and quotes inside are doubled.
// Other control bytes are quoted too, and so are blanks at the border, which readers like to drop.
void appendCsvField(std::string* out, std::string_view text) {
    bool plain = true;
    for (const char c : text) plain = plain && c != ',' && c != '"' && static_cast<unsigned char>(c) >= 0x20;
    if (plain && (text.empty() || (text.front() != ' ' && text.back() != ' ')))
        return appendValidUtf8(out, text);
    *out += '"';
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t quote = std::min(text.find('"', at), text.size());
        appendValidUtf8(out, text.substr(at, quote - at));
        if (quote < text.size()) *out += "\"\"";
        at = quote + 1;
    }
    *out += '"';
}

}  // namespace

const char* mediaType(RowFormat format) {
    switch (format) {
        case RowFormat::Ndjson:
            return "application/x-ndjson";
        case RowFormat::Csv:
            return "text/csv; charset=utf-8";
        case RowFormat::Json:
            break;
    }
    return "application/json";
}

RowWriter::RowWriter(const TableLayout& layout, const std::vector<const Column*>& columns) {
    std::vector<const Column*> chosen = columns;
    if (chosen.empty()) {
        for (const Column& column : layout.columns) chosen.push_back(&column);
    }
    for (const Column* column : chosen) {
        Field field{column, fields_.empty() ? "{" : ","};
        appendJsonString(&field.prefix, column->name);
        field.prefix += ':';
        fields_.push_back(std::move(field));
    }
}

void RowWriter::appendObject(std::string* out, const char* row) const {
    if (fields_.empty()) *out += '{';
    for (const Field& field : fields_) {
        out->append(field.prefix);
        const Column& column = *field.column;
        if (column.kind == ColumnKind::Text) {
            appendJsonString(out, readText(column, row));
        } else {
            appendDecimal(out, readInteger(column, row), column.decimals);
        }
    }
    *out += '}';
}

void RowWriter::appendRecord(std::string* out, const char* row) const {
    bool first = true;
    for (const Field& field : fields_) {
        if (!first) *out += ',';
        first = false;
        const Column& column = *field.column;
        if (column.kind == ColumnKind::Text) {
            appendCsvField(out, readText(column, row));
        } else {
            appendDecimal(out, readInteger(column, row), column.decimals);
        }
    }
    *out += "\r\n";
}

void RowWriter::appendHeader(std::string* out) const {
    bool first = true;
    for (const Field& field : fields_) {
        if (!first) *out += ',';
        first = false;
        appendCsvField(out, field.column->name);
    }
    *out += "\r\n";
}

void RowWriter::appendRows(std::string* out, const Batch& batch, RowFormat format) const {
    if (format == RowFormat::Csv) appendHeader(out);
    if (format == RowFormat::Json) *out += '[';
    for (std::size_t i = 0; i < batch.count(); ++i) {
        if (i == 64) out->reserve(out->size() + (out->size() / i + 16) * batch.count());
        if (format == RowFormat::Json && i > 0) *out += ',';
        if (format == RowFormat::Csv) {
            appendRecord(out, batch.row(i));
        } else {
            appendObject(out, batch.row(i));
        }
        if (format == RowFormat::Ndjson) *out += '\n';
    }
    if (format == RowFormat::Json) *out += ']';
}

}  // namespace almanac::host
