// The memory of the previous collection: PrevResult is one cell's, PrevResultInstance one row's, PrevResultList a query
// class's. Used by the thread that collects alone; no locks.
#pragma once

#include <cstddef>
#include <ctime>
#include <vector>

#include "foundation/List.h"
#include "foundation/UTF8String.h"

class ResultMetric;

// What one cell held, one memory for each form of value: a cell that changes its form finds the memory of that form as
// it was left.
class PrevResult : public ListElement {
  public:
    explicit PrevResult(const char* name);  // copied
    ~PrevResult() override;
    PrevResult(const PrevResult&) = delete;
    PrevResult& operator=(const PrevResult&) = delete;

    const char* getName() const { return name_; }
    long long getValue64() const { return value64_; }
    unsigned long long getValueU64() const { return valueU64_; }
    double getValueDouble() const { return valueDouble_; }
    const char* getValueString() const { return valueString_; }          // may be null
    UTF8String* getValueUTF8String() const { return valueUTF8_; }        // may be null
    void setValue(long long value) { value64_ = value; }
    void setValue(unsigned long long value) { valueU64_ = value; }
    void setValue(double value) { valueDouble_ = value; }
    void setValue(const char* text);  // takes over a malloc'd text, frees the one held
    void setValue(UTF8String* text);  // takes over, deletes the one held
    time_t getTime() const { return time_; }  // seconds; of the last rate, or of the seeding
    void setTime(time_t seconds) { time_ = seconds; }

  private:
    static constexpr std::size_t kInlineName = 24;

    char* name_;  // inlineName_, or on the heap where it is longer
    char inlineName_[kInlineName];
    long long value64_ = 0;
    unsigned long long valueU64_ = 0;
    double valueDouble_ = 0.0;
    const char* valueString_ = nullptr;
    UTF8String* valueUTF8_ = nullptr;
    time_t time_ = 0;
};

// One row's memory, its cells in order of first use.
class PrevResultInstance : public ListElement {
  public:
    explicit PrevResultInstance(const char* instanceName);  // copied
    ~PrevResultInstance() override;
    PrevResultInstance(const PrevResultInstance&) = delete;
    PrevResultInstance& operator=(const PrevResultInstance&) = delete;

    const char* getInstanceName() const { return instanceName_; }
    ListCursor getPrevResultListCursor() const { return ListCursor(first_); }
    void addPrevResult(PrevResult* added);  // takes over
    // The memory of that name, or null. A walk that asks for the names in the order in which they were added finds each
    // at once.
    PrevResult* find(const char* name);

  private:
    friend class PrevResultList;

    char* instanceName_;
    PrevResult* first_ = nullptr;
    PrevResult* last_ = nullptr;
    PrevResult* next_ = nullptr;  // where the next search begins
    std::size_t hash_;
    PrevResultInstance* nextOfBucket_ = nullptr;
};

// Rows' memories, the one pushed last first, found by exact name through a hash: of several with one name the one
// pushed last. Owns what it holds.
class PrevResultList {
  public:
    PrevResultList() = default;
    ~PrevResultList() { clear(); }
    PrevResultList(const PrevResultList&) = delete;
    PrevResultList& operator=(const PrevResultList&) = delete;

    void push(PrevResultInstance* instance);       // takes over
    PrevResultInstance* take(const char* name);    // unlinks; the caller's, or null
    void clear();                                  // deletes all
    void reserve(std::size_t rows);                // before the first push; a bound for the hash, not for the rows
    void swap(PrevResultList& other) noexcept;
    ListCursor cursor() const { return ListCursor(first_); }
    std::size_t count() const { return count_; }

  private:
    PrevResultInstance*& bucketOf(std::size_t hash) { return buckets_[hash & (buckets_.size() - 1)]; }
    void grow(std::size_t buckets);

    PrevResultInstance* first_ = nullptr;
    std::size_t count_ = 0;
    std::vector<PrevResultInstance*> buckets_;  // a power of two of them
};
