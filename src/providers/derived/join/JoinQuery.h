// One side of a join as the reference file declares it, and, for the length of one pass, the rows that it has.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "providers/derived/source/SourceClass.h"

class JoinQuery {
  public:
    // A null attribute matches nothing.
    JoinQuery(const char* className, const char* joinAttr, bool singleton);
    // The side of a subnode's copy: as declared, with no class yet.
    explicit JoinQuery(const JoinQuery* prototype);
    virtual ~JoinQuery() = default;
    JoinQuery(const JoinQuery&) = delete;
    JoinQuery& operator=(const JoinQuery&) = delete;

    const char* getClassName() const { return className_.c_str(); }
    const char* getJoinAttr() const { return joinAttr_.get(); }  // in the source's rows; null if there is none
    void setJoinAttr(const char* attribute) { joinAttr_.set(attribute); }
    bool isSingleton() const { return singleton_; }
    ResultsManager* getClientClass() const { return clientClass_.get(); }  // null until resolved
    void setClientClass(SourceClass found) { clientClass_ = std::move(found); }
    // Whether rows of this side are matched by their instance name.
    bool matchesByInstanceName() const;

  private:
    // A text that may be missing.
    class Text {
      public:
        explicit Text(const char* text) { set(text); }
        void set(const char* text) {
            there_ = text != nullptr;
            text_ = text ? text : "";
        }
        const char* get() const { return there_ ? text_.c_str() : nullptr; }

      private:
        bool there_ = false;
        std::string text_;
    };

    const std::string className_;
    const Text declaredAttr_;
    Text joinAttr_;
    const bool singleton_;
    SourceClass clientClass_;
};

// The rows of one side in one pass of a join. It belongs to the pass: several threads may join at once, one for each
// event. While it is used the source's results lock is held, unless its one row is an event's.
class JoinRows {
  public:
    explicit JoinRows(const JoinQuery* query) : query_(query) {}

    // Takes the event's row, or with null what the source has now. CANNOT_FIND_JOINED_QUERY without a class,
    // NO_INSTANCES_RETURNED_IN_QUERY_1 without rows, else OBJECT_ACTIVE.
    PERF_OBJECT_ERROR_CODE initQueryData(ResultInstance* row);
    bool isEmpty() const { return instanceCount_ == 0; }
    int getInstanceCount() const { return instanceCount_; }
    ListCursor getInstanceList() const { return ListCursor(first_); }
    // The row at place i, of a singleton always the first; null past the end. A walk with rising i steps once a row.
    ResultInstance* getIndexedResultInstance(int i);
    // The first row of this side whose join attribute equals that of `row`, a row of `other`; null if there is none.
    // Values are equal if their forms and values are: NaN equals nothing, -0 equals 0.
    ResultInstance* getMatchingResultInstance(const JoinRows& other, const ResultInstance* row);
    // The same with the other row's instance name as the value.
    ResultInstance* getMatchingPerfmonResultInstance(const JoinRows& other, const ResultInstance* row);
    const JoinQuery& query() const { return *query_; }

  private:
    // A value as it is compared; a row without one matches nothing.
    struct Value {
        bool there = false;
        ValueForm form = FORM_INT;
        unsigned long long bits = 0;
        std::string_view text;  // the cell's or the row's own
        bool operator==(const Value& other) const { return form == other.form && bits == other.bits && text == other.text; }
    };
    struct ValueHash {
        std::size_t operator()(const Value& value) const;
    };
    static Value valueOf(const ResultMetric* cell);
    static Value textOf(const ResultMetric* cell);
    static Value nameOf(const ResultInstance* row);
    ResultInstance* find(const Value& value, bool asText);
    void makeIndex(bool asText);

    const JoinQuery* query_;
    ResultInstance* first_ = nullptr;
    int instanceCount_ = 0;
    ResultInstance* at_ = nullptr;  // where the indexed walk stands
    int position_ = 0;
    bool oneRow_ = false;  // an event's row, which may stand in somebody's chain
    bool indexed_ = false;
    std::unordered_map<Value, ResultInstance*, ValueHash> index_;  // of each value the first row
};
