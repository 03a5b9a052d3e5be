// A small agent for the host's tests: tables of a fixed layout whose rows a test provides.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/framework/RequestState.h"
#include "platform/zhb.h"

namespace almanac::host::test {

// Row layout as the agent computes it: the 8-byte number lies on a multiple of 4.
struct FakeRow {
    std::string origin = "node";
    std::string name;
    int cpu = 0;
    long long size = 0;
    int load = 0;  // two implied decimals
    short small = 0;

    static constexpr int kBytes = 70;

    std::vector<char> bytes() const {
        std::vector<char> row(kBytes, ' ');
        std::memcpy(row.data(), origin.data(), std::min<std::size_t>(origin.size(), 32));
        std::memcpy(row.data() + 32, name.data(), std::min<std::size_t>(name.size(), 16));
        const std::int32_t cpu32 = cpu, load32 = load;
        const std::int64_t size64 = size;
        const std::int16_t small16 = small;
        std::memcpy(row.data() + 48, &cpu32, 4);
        std::memcpy(row.data() + 52, &size64, 8);
        std::memcpy(row.data() + 60, &load32, 4);
        std::memcpy(row.data() + 64, &small16, 2);
        return row;
    }
};

struct FakeColumn {
    const char* name;
    int offset, length, type;
    const char* hint;
};
inline constexpr FakeColumn kFakeColumns[] = {
    {"ORIGINNODE", 0, 32, HBX_TEXT, nullptr}, {"NAME", 32, 16, HBX_UTF8, nullptr},
    {"CPU", 48, 4, HBX_INT32, nullptr},       {"SIZE", 52, 8, HBX_INT64, nullptr},
    {"LOAD", 60, 4, HBX_INT32, "d-2"},        {"SMALL", 64, 2, HBX_INT16, nullptr},
};

class FakeTable;

class FakeRequest : public aghbx {
  public:
    FakeRequest(RequestDetail* detail, ContextInfo* context, FakeTable* table);
    ~FakeRequest() override;
    int TakeSample() override;
    int NumColumns() override { return static_cast<int>(std::size(kFakeColumns)); }
    int GetColumnInfo(ColumnInfo* info, int column) override {
        if (column < 0 || column >= NumColumns()) return HBX_BAD_COLUMN;
        const FakeColumn& c = kFakeColumns[column];
        *info = ColumnInfo{c.name, c.hint, c.offset, c.length, c.type};
        return 0;
    }
    // As the agent does it: numbers of up to 32 bits as int, wider ones clamped, texts as they stand.
    int ColumnIsException(char* row, char* column, _IntfOper oper, char* value) override {
        ColumnInfo info;
        if (GetColumnInfoByName(&info, column) != 0) return 0;
        if (info.type == HBX_TEXT || info.type == HBX_UTF8)
            return IsException(oper, row + info.offset, value, info.length);
        if (info.type == HBX_INT64) {
            std::int64_t number;
            std::memcpy(&number, row + info.offset, sizeof number);
            return IsException(
                oper, static_cast<long>(std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX)), value);
        }
        if (info.type == HBX_INT16) {
            std::int16_t number;
            std::memcpy(&number, row + info.offset, sizeof number);
            return IsException(oper, static_cast<int>(number), value);
        }
        std::int32_t number;
        std::memcpy(&number, row + info.offset, sizeof number);
        return IsException(oper, number, value);
    }
    // A demand request's rows go past the filter; others are compared.
    int AddData(char* row, int size) {
        SetRowSize(static_cast<unsigned>(size));
        if (_get_sampletype() == HBX_DEMAND || CheckForException(row)) return InsertRow(row);
        return 2;
    }
    int add(const FakeRow& row) {
        std::vector<char> bytes = row.bytes();
        return AddData(bytes.data(), FakeRow::kBytes);
    }

  private:
    FakeTable* table_;
};

class FakeTable : public TableManager {
  public:
    using Sampler = std::function<int(FakeRequest&)>;

    explicit FakeTable(const char* name, Sampler sampler = nullptr)
        : TableManager("FAKE", name), sampler_(std::move(sampler)) {}

    aghbx* CreateAghbx(RequestDetail* detail, ContextInfo* context) override {
        ++made;
        return new FakeRequest(detail, context, this);
    }
    // An event as the agent delivers it: to every open request, with the table locked.
    void event(const FakeRow& row) {
        lock();
        AghbxListIter iter(Requests());
        while (aghbx* next = iter.Next()) {
            next->UseHandle(next->Handle());
            static_cast<FakeRequest*>(next)->add(row);
            next->Dispatch();
            next->ClearCount();
            next->Drop();
        }
        unlock();
    }
    int sample(FakeRequest& request) { return sampler_ ? sampler_(request) : 0; }

    std::atomic<int> made{0}, deleted{0}, samples{0};

  private:
    Sampler sampler_;
};

inline FakeRequest::FakeRequest(RequestDetail* detail, ContextInfo* context, FakeTable* table)
    : aghbx(detail, context, table), table_(table) {
    SetRowSize(FakeRow::kBytes);
    SetAllocationDefault(10);
}
inline FakeRequest::~FakeRequest() { ++table_->deleted; }
inline int FakeRequest::TakeSample() {
    ++table_->samples;
    return table_->sample(*this);
}

// A door that a sampler waits at until the test opens it.
class Gate {
  public:
    void pass() {
        std::unique_lock lock(mutex_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    void open() {
        const std::lock_guard guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    // Until `count` threads have arrived.
    bool arrived(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return waiting_ >= count; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int waiting_ = 0;
    bool open_ = false;
};

}  // namespace almanac::host::test
