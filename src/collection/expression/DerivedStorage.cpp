#include "collection/expression/DerivedStorage.h"

#include <algorithm>
#include <new>

#include "foundation/Trace.h"

// `count` and `last` of one formula share the record and use parts of their own.
struct DerivedStorage::Record {
    long long counter = 0;
    std::unique_ptr<double[]> ring;  // made by the first sample, never again
    int room = 0;
    int count = 0;
    int next = 0;  // the oldest sample once the ring is full
};

DerivedStorage::DerivedStorage() = default;
DerivedStorage::~DerivedStorage() = default;

DerivedStorage::Record& DerivedStorage::record(std::string_view metric, std::string_view row) {
    TRACE_MESSAGES();
    auto rows = records_.find(metric);
    if (rows == records_.end()) rows = records_.try_emplace(std::string(metric)).first;
    auto found = rows->second.find(row);
    if (found == rows->second.end()) {
        found = rows->second.try_emplace(std::string(row)).first;
        trace_detail("No prior storage for %s", found->first.c_str());
    } else {
        trace_detail("Found prior storage for %s (%p)", found->first.c_str(), static_cast<void*>(&found->second));
    }
    return found->second;
}

long long DerivedStorage::count(std::string_view metric, std::string_view row) {
    const std::lock_guard guard(mutex_);
    return ++record(metric, row).counter;
}

void DerivedStorage::addSample(std::string_view metric, std::string_view row, int samples, double value,
                               std::vector<double>* list) {
    TRACE_MESSAGES();
    const std::lock_guard guard(mutex_);
    Record& r = record(metric, row);
    list->clear();
    if (!r.ring) {
        const int room = std::min(samples, kMostSamples);
        r.ring.reset(new (std::nothrow) double[static_cast<std::size_t>(room)]);
        if (!r.ring) {
            trace_error("No memory for %d samples", room);
            return;
        }
        r.room = room;
    }
    // Kept: two calls of one formula share the ring; with other numbers of samples they read it at their own length.
    samples = std::min(samples, r.room);
    if (r.count < samples) {
        r.ring[static_cast<std::size_t>(r.count++)] = value;
    } else {
        r.ring[static_cast<std::size_t>(r.next++)] = value;
        if (r.next >= samples) r.next = 0;
    }
    // A shorter call may have moved `next` on while the ring was not full: no sample lies behind the count.
    const int end = std::min(samples, r.count);
    int at = r.next;
    for (int i = 0; i < r.count; ++i) {
        list->push_back(r.ring[static_cast<std::size_t>(at++)]);
        if (at >= end) at = 0;
    }
}

void DerivedStorage::clear() {
    const std::lock_guard guard(mutex_);
    records_.clear();
}
