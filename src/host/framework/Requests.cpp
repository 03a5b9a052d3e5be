// The request base: filter, subnodes, rows and references of one request.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/base/HostTrace.h"
#include "host/framework/ActionRun.h"
#include "host/framework/RequestState.h"

using almanac::host::Batch;
using almanac::host::FilterComparison;
using almanac::host::FilterLiteral;
using almanac::host::RequestSpec;

namespace {

std::atomic<unsigned> lastHandle{0};

#if !defined(__SANITIZE_ADDRESS__)
// The resting places of freed request memory, first in, first out.
class RestingMemory {
  public:
    void* exchange(void* memory) {
        const std::lock_guard guard(mutex_);
        std::swap(memory, places_[next_]);
        next_ = (next_ + 1) % places_.size();
        return memory;
    }

  private:
    std::mutex mutex_;
    std::array<void*, 64> places_{};
    std::size_t next_ = 0;
};

RestingMemory& restingMemory() {
    static RestingMemory* const memory = new RestingMemory;
    return *memory;
}
#endif

const RequestSpec& emptySpec() {
    static const RequestSpec* const spec = new RequestSpec;
    return *spec;
}

const FilterLiteral* literalOf(const char* value) { return reinterpret_cast<const FilterLiteral*>(value); }

}  // namespace

bool aghbx::State::retire() {
    const std::lock_guard guard(mutex);
    retired = true;
    return references == 0;
}

void* aghbx::operator new(std::size_t bytes) { return ::operator new(bytes); }

void aghbx::operator delete(void* memory) {
#if defined(__SANITIZE_ADDRESS__)
    ::operator delete(memory);  // the sanitizer keeps freed memory aside by itself and sees its misuse
#else
    ::operator delete(restingMemory().exchange(memory));
#endif
}

aghbx::aghbx(RequestDetail* detail, ContextInfo* context, TableManager* table) : state_(new State) {
    state_->spec =
        detail ? detail->spec : std::shared_ptr<const RequestSpec>(&emptySpec(), [](const RequestSpec*) {});
    state_->table = table;
    do {
        state_->handle = lastHandle.fetch_add(1) + 1;
    } while (state_->handle == 0);
    if (context) {
        state_->onEvents = context->onEvents;
        state_->onLastDrop = context->onLastDrop;
    }
    if (state_->spec->filter) state_->elements = state_->spec->filter->elements();
    state_->sample = Batch(state_->spec->layout);
    state_->events = Batch(state_->spec->layout);
}

aghbx::~aghbx() = default;

int aghbx::PrintSelf() {
    HOST_TRACE_FUNCTION();
    host_trace_detail("request %u on %s, sample type %d", state_->handle, TableName(), _get_sampletype());
    return 0;
}

int aghbx::ExecuteCommand(char* command, int length, char* user) {
    if (!command || length < 0) return -1;
    return almanac::host::runCommandHere(
        std::string(command, strnlen(command, static_cast<std::size_t>(length))), user, this);
}

int aghbx::CommandCompleted(AghbxAutomationCapsule*) { return 0; }

int aghbx::FinishedAutomationCommand(AghbxAutomationCapsule* capsule) {
    if (!capsule) return -1;
    CommandCompleted(capsule);
    almanac::host::finishCapsule(capsule);
    return 0;
}

int aghbx::InsertRow(char* row) {
    State& s = *state_;
    if (!row || s.stopInserting.load(std::memory_order_relaxed)) return 1;
    // A demand request's rows come past the filter; events and situations have been compared by the agent.
    if (s.spec->type == HBX_DEMAND && s.spec->filter && !CheckForException(row)) return 0;
    const bool sampling = s.samplingThread.load(std::memory_order_relaxed) == std::this_thread::get_id();
    try {
        const std::lock_guard guard(s.mutex);
        Batch& batch = sampling ? s.sample : s.events;
        if (batch.count() < s.spec->limit && batch.append(row, s.rowSize.load(std::memory_order_relaxed)))
            return 0;
        if (sampling) s.full = true;
    } catch (...) {
        const std::lock_guard guard(s.mutex);
        s.full = true;
    }
    return 1;
}

int aghbx::CheckForException(char* row) {
    const auto& filter = state_->spec->filter;
    if (!filter) return 1;
    const bool passes = filter->evaluate([&](const FilterComparison& c) {
        char* value = reinterpret_cast<char*>(const_cast<FilterLiteral*>(&c.literal));
        return ColumnIsException(row, const_cast<char*>(c.column.c_str()), c.oper, value) != 0;
    });
    return passes ? 1 : 0;
}

int aghbx::_get_sampletype() const { return state_->spec->type; }
int aghbx::_get_interval() const {
    return static_cast<int>((state_->spec->intervalMilliseconds + 999) / 1000);
}
int aghbx::Interval() const { return _get_interval(); }

bool aghbx::QueryState(unsigned state) const {
    return (state & HBX_STATE_ALL_SUBNODES) != 0 && state_->spec->allSubnodes;
}

void aghbx::SetRowSize(unsigned bytes) { state_->rowSize.store(bytes, std::memory_order_relaxed); }

void aghbx::SetAllocationDefault(unsigned rows) {
    state_->allocationDefault.store(rows, std::memory_order_relaxed);
}

const char* aghbx::TableName() const {
    return state_->table ? state_->table->TableName() : state_->spec->table.c_str();
}

const char* aghbx::ApplicationName() const {
    return state_->table ? state_->table->ApplicationName() : state_->spec->application.c_str();
}

const char* aghbx::SituationName() const { return state_->spec->situation.c_str(); }
int aghbx::IsHistoryRequest() const { return state_->spec->history; }

int aghbx::GetFilterInfo(ZFL1_FILTERINFO** info) {
    if (!info) return 1;
    const std::size_t index = state_->nextElement.fetch_add(1);
    if (index >= state_->elements.size()) {
        state_->nextElement.store(state_->elements.size());
        *info = nullptr;
        return 1;
    }
    *info = &state_->elements[index];
    return 0;
}

void aghbx::ResetFilterIndex() { state_->nextElement.store(0); }

const char* aghbx::GetSubnode() {
    const auto& names = state_->spec->subnodes;
    const std::size_t index = state_->nextSubnode.fetch_add(1);
    if (index < names.size()) return names[index].c_str();
    state_->nextSubnode.store(names.size());
    return "";
}

const char* aghbx::DestinationNode() const { return state_->spec->destination.c_str(); }

int aghbx::GetDataColumn(int row, const char* column, char* out, int size) const {
    const RequestSpec& spec = *state_->spec;
    if (row != 0 || !column || !out || size < 0 || spec.originNode.empty() || std::strcmp(column, "ORIGINNODE") != 0) return -1;
    // As a row has it: filled with blanks to the column's width.
    const int width = std::min(size, 32);
    const std::size_t length = std::min(spec.originNode.size(), static_cast<std::size_t>(width));
    std::memset(out, ' ', static_cast<std::size_t>(width));
    std::memcpy(out, spec.originNode.data(), length);
    return width;
}

void aghbx::ResetGetSubnode() { state_->nextSubnode.store(0); }

int aghbx::IsException(_IntfOper oper, int number, char* value) {
    return IsException(oper, static_cast<long>(number), value);
}

int aghbx::IsException(_IntfOper oper, long number, char* value) {
    return value && literalOf(value)->matches(oper, static_cast<long long>(number)) ? 1 : 0;
}

int aghbx::IsException(_IntfOper oper, const char* text, char* value, int length) {
    if (!value || !text || length < 0) return 0;
    return literalOf(value)->matches(oper, std::string_view(text, static_cast<std::size_t>(length))) ? 1 : 0;
}

int aghbx::Dispatch() {
    State& s = *state_;
    // What a sample inserts is handed over as a whole when the sample ends.
    if (s.samplingThread.load(std::memory_order_relaxed) == std::this_thread::get_id()) return 0;
    Batch events(s.spec->layout);
    {
        const std::lock_guard guard(s.mutex);
        std::swap(events, s.events);
    }
    if (!events.empty() && s.onEvents) s.onEvents(std::move(events));
    return 0;
}

unsigned aghbx::Handle() const { return state_->handle; }

void aghbx::UseHandle(unsigned handle) {
    if (handle != state_->handle) return;
    const std::lock_guard guard(state_->mutex);
    ++state_->references;
}

void aghbx::ClearCount() {
    const std::lock_guard guard(state_->mutex);
    state_->events = Batch(state_->spec->layout);
}

void aghbx::Drop() {
    std::function<void(aghbx*)> last;
    {
        const std::lock_guard guard(state_->mutex);
        if (state_->references > 0) --state_->references;
        if (state_->references == 0 && state_->retired) {
            last = std::move(state_->onLastDrop);
            state_->onLastDrop = nullptr;
        }
    }
    if (last) last(this);
}

void aghbx::DumpThresholds() {
    HOST_TRACE_FUNCTION();
    if (!state_->spec->filter) return;
    for (const FilterComparison& c : state_->spec->filter->comparisons())
        host_trace_detail("threshold: column %s operator %d function %d", c.column.c_str(), c.oper,
                          c.literal.function);
}

int aghbx::GetColumnInfoByName(ColumnInfo* info, const char* name) {
    if (!info || !name) return HBX_BAD_COLUMN;
    const int count = NumColumns();
    for (int i = 0; i < count; ++i) {
        ColumnInfo found;
        if (GetColumnInfo(&found, i) == 0 && found.name && std::string_view(found.name) == name) {
            *info = found;
            return 0;
        }
    }
    return HBX_BAD_COLUMN;
}
