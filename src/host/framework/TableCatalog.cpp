#include "host/framework/TableCatalog.h"

#include <algorithm>

#include "host/base/HostTrace.h"
#include "host/framework/AgentCall.h"
#include "host/framework/RequestState.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr int kMaxColumns = 10000;
constexpr std::size_t kMaxRow = std::size_t{16} << 20;

ColumnKind kindOf(int type) {
    switch (type) {
        case HBX_INT16:
            return ColumnKind::Int16;
        case HBX_INT32:
            return ColumnKind::Int32;
        case HBX_INT64:
            return ColumnKind::Int64;
        default:
            return ColumnKind::Text;
    }
}

// False for a place that cannot be: it would be read outside the row.
bool toColumn(const ColumnInfo& info, Column* out) {
    if (!info.name || !*info.name || info.offset < 0 || info.length <= 0) return false;
    out->name = info.name;
    out->hint = info.hint ? info.hint : "";
    out->offset = static_cast<std::size_t>(info.offset);
    out->length = static_cast<std::size_t>(info.length);
    out->type = info.type;
    out->kind = kindOf(info.type);
    if ((out->kind == ColumnKind::Int64 && out->length != 8) ||
        (out->kind == ColumnKind::Int16 && out->length != 2))
        return false;
    if (out->kind != ColumnKind::Text) out->decimals = hintDecimals(out->hint);
    return out->offset + out->length <= kMaxRow;
}

}  // namespace

TableEntry::TableEntry(TableManager* manager)
    : name_(manager->TableName()), application_(manager->ApplicationName()), manager_(manager) {}

std::shared_ptr<const TableLayout> TableEntry::layout() const {
    const std::lock_guard guard(mutex_);
    return layout_;
}

TableStatistics TableEntry::statistics() const {
    const std::lock_guard guard(mutex_);
    return statistics_;
}

bool TableEntry::learn() {
    HOST_TRACE_FUNCTION();
    auto layout = std::make_shared<TableLayout>();
    layout->name = name_;
    layout->application = application_;
    auto spec = std::make_shared<RequestSpec>();
    spec->table = name_;
    spec->application = application_;
    const bool called = callAgent([&] {
        RequestDetail detail(spec);
        ContextInfo context;
        const std::unique_ptr<aghbx> request(manager_->CreateAghbx(&detail, &context));
        if (!request) return;
        const int count = std::min(request->NumColumns(), kMaxColumns);
        for (int i = 0; i < count; ++i) {
            ColumnInfo info;
            Column column;
            if (request->GetColumnInfo(&info, i) != 0 || !toColumn(info, &column)) {
                host_trace_error("table %s: column %d cannot be used", name_.c_str(), i);
                continue;
            }
            layout->rowSize = std::max(layout->rowSize, column.offset + column.length);
            layout->columns.push_back(std::move(column));
        }
    });
    if (!called || layout->columns.empty()) {
        host_trace_error("table %s: the agent gives no columns", name_.c_str());
        return false;
    }
    const std::lock_guard guard(mutex_);
    layout_ = std::move(layout);
    return true;
}

void TableEntry::countRequest() {
    const std::lock_guard guard(mutex_);
    ++statistics_.requests;
}

void TableEntry::countRefused() {
    const std::lock_guard guard(mutex_);
    ++statistics_.refused;
}

void TableEntry::countTimeout() {
    const std::lock_guard guard(mutex_);
    ++statistics_.timeouts;
}

void TableEntry::countStart() {
    timespec now;
    ZSV1_GetTime(&now);
    const std::lock_guard guard(mutex_);
    ++statistics_.running;
    statistics_.lastStart = std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void TableEntry::countEnd(bool answered, std::uint64_t rows, std::chrono::nanoseconds duration) {
    const std::lock_guard guard(mutex_);
    --statistics_.running;
    if (!answered) {
        ++statistics_.failed;
        return;
    }
    ++statistics_.answered;
    statistics_.lastRows = rows;
    statistics_.lastDuration = duration;
}

std::shared_ptr<TableEntry> TableCatalog::add(TableManager* manager) {
    auto entry = std::make_shared<TableEntry>(manager);
    const std::lock_guard guard(mutex_);
    entries_.push_back(entry);
    return entry;
}

void TableCatalog::forget(TableManager* manager) {
    const std::lock_guard guard(mutex_);
    std::erase_if(entries_, [manager](const auto& entry) { return entry->manager() == manager; });
}

std::vector<std::shared_ptr<TableEntry>> TableCatalog::list() const {
    const std::lock_guard guard(mutex_);
    std::vector<std::shared_ptr<TableEntry>> result;
    for (const auto& entry : entries_) {
        const bool second = std::any_of(result.begin(), result.end(), [&](const auto& other) {
            return other->name() == entry->name() && other->application() == entry->application();
        });
        if (!second) result.push_back(entry);
    }
    return result;
}

std::shared_ptr<TableEntry> TableCatalog::find(std::string_view name) const {
    const std::lock_guard guard(mutex_);
    std::shared_ptr<TableEntry> folded;
    bool ambiguous = false;
    for (const auto& entry : entries_) {
        if (entry->name() == name) return entry;
        if (!equalsNoCase(entry->name(), name)) continue;
        if (!folded)
            folded = entry;
        else
            ambiguous = ambiguous || folded->name() != entry->name();
    }
    return ambiguous ? nullptr : folded;
}

std::string TableCatalog::nearest(std::string_view name) const {
    const auto tables = list();
    std::vector<std::string_view> names;
    names.reserve(tables.size());
    for (const auto& entry : tables) names.push_back(entry->name());
    return nearestName(name, names);
}

TableManager* TableCatalog::findManager(std::string_view application, std::string_view name) const {
    const std::lock_guard guard(mutex_);
    for (const auto& entry : entries_) {
        if (entry->name() == name && entry->application() == application) return entry->manager();
    }
    return nullptr;
}

void TableCatalog::learnAll() {
    for (const auto& entry : list()) {
        if (!entry->layout()) entry->learn();
    }
}

}  // namespace almanac::host
