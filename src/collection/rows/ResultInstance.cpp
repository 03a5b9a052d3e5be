#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "collection/rows/ResultMetric.h"
#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

constexpr int kSmallestName = 64;
constexpr int kShortWalk = 16;  // rows of up to this many cells are searched cell by cell

const List& noDerivedCells() {
    static const List* empty = new List;
    return *empty;
}

}  // namespace

// The cells of a wide row by name, of several with one name the latest: open addressing, one pointer for each place, because
// a table keeps as many of these as it has rows.
class ResultInstance::CellIndex {
  public:
    void put(ResultMetric* cell) {
        if (!cell->getQMPVMetricName()) return;
        if ((count_ + 1) * 4 > places_.size() * 3) grow();
        ResultMetric*& place = placeOf(cell->getQMPVMetricName());
        count_ += place ? 0 : 1;
        place = cell;
    }
    ResultMetric* get(const char* name) const { return const_cast<CellIndex*>(this)->placeOf(name); }

  private:
    static constexpr std::size_t kPlaces = 32;  // at first; a power of two

    // Where the cell of that name stands, or would.
    ResultMetric*& placeOf(const char* name) {
        const std::size_t mask = places_.size() - 1;
        std::size_t at = hash_function(name) & mask;
        while (places_[at] && std::strcmp(places_[at]->getQMPVMetricName(), name) != 0) at = (at + 1) & mask;
        return places_[at];
    }
    void grow() {
        std::vector<ResultMetric*> old(places_.size() * 2);
        old.swap(places_);
        for (ResultMetric* cell : old) {
            if (cell) placeOf(cell->getQMPVMetricName()) = cell;
        }
    }

    std::vector<ResultMetric*> places_ = std::vector<ResultMetric*>(kPlaces);
    std::size_t count_ = 0;
};

ResultInstance::ResultInstance(const char* name, int expectedMetricCount) : expectedCount_(expectedMetricCount) {
    if (!name) name = "";
    nameLength_ = static_cast<int>(std::strlen(name));
    nameCapacity_ = std::max(nameLength_ + 1, kSmallestName);
    name_ = static_cast<char*>(std::malloc(static_cast<std::size_t>(nameCapacity_)));
    if (!name_) std::abort();
    std::memcpy(name_, name, static_cast<std::size_t>(nameLength_) + 1);
}

ResultInstance::~ResultInstance() {
    for (ResultMetric* cell = first_; cell;) {
        auto* next = static_cast<ResultMetric*>(cell->getNextElement());
        delete cell;
        cell = next;
    }
    if (derived_) {
        for (int i = 0; i < derived_->getCount(); ++i) delete static_cast<ResultMetric*>(derived_->get(i));
        delete derived_;
    }
    delete index_;
    std::free(name_);
    std::free(timestamp_);
}

void ResultInstance::enter(ResultMetric* cell) {
    if (index_) {
        index_->put(cell);
        return;
    }
    const int cells = actualCount_ + (derived_ ? derived_->getCount() : 0);
    if (cells <= kShortWalk) return;
    index_ = new CellIndex;
    for (ResultMetric* c = first_; c; c = static_cast<ResultMetric*>(c->getNextElement())) index_->put(c);
    for (int i = 0; derived_ && i < derived_->getCount(); ++i) index_->put(static_cast<ResultMetric*>(derived_->get(i)));
}

void ResultInstance::addMetric(ResultMetric* cell) {
    TRACE_MESSAGES();
    cell->setPrevElement(last_);
    cell->setNextElement(nullptr);
    if (last_) {
        last_->setNextElement(cell);
    } else {
        first_ = cell;
    }
    last_ = cell;
    ++actualCount_;
    enter(cell);
    if (!cell->isKey()) return;

    char number[32];
    switch (cell->form()) {
        case FORM_INT:
            std::snprintf(number, sizeof number, "%d", cell->getMetricValue());
            appendToName(number);
            break;
        case FORM_UINT64:
            std::snprintf(number, sizeof number, "%llu", cell->getMetricValueU64());
            appendToName(number);
            break;
        case FORM_INT64:
            std::snprintf(number, sizeof number, "%lld", cell->getMetricValue64());
            appendToName(number);
            break;
        case FORM_STRING:
            appendToName(cell->getStringValue());
            break;
        case FORM_UTF8: {
            const char* text = cell->getUTF8StringData()->getUTF8Value();
            appendToName(text ? text : "");
            break;
        }
        case FORM_DOUBLE:
            trace_error("Unknown metric type for metric %s", cell->getQMPVMetricName() ? cell->getQMPVMetricName() : "");
            break;
    }
}

void ResultInstance::appendToName(const char* text) {
    if (keyCount_ == 0) {  // the constructor's name only stood by
        nameLength_ = 0;
        name_[0] = '\0';
    }
    const int length = static_cast<int>(std::strlen(text));
    const int need = nameLength_ + length + 2 - nameCapacity_;
    if (need > 0) {
        nameCapacity_ += std::max(need, kSmallestName);
        name_ = static_cast<char*>(std::realloc(name_, static_cast<std::size_t>(nameCapacity_)));
        if (!name_) std::abort();
    }
    if (keyCount_ > 0) name_[nameLength_++] = '|';
    std::memcpy(name_ + nameLength_, text, static_cast<std::size_t>(length) + 1);
    nameLength_ += length;
    ++keyCount_;
}

void ResultInstance::addDerivedMetric(ResultMetric* cell) {
    if (!derived_) derived_ = new List;
    derived_->add(cell);
    enter(cell);
}

ResultMetric* ResultInstance::getMetric(const char* attributeName) const {
    if (!attributeName) return nullptr;
    if (index_) return index_->get(attributeName);
    const auto matches = [attributeName](const ResultMetric* cell) {
        const char* name = cell->getQMPVMetricName();
        return name == attributeName || (name && std::strcmp(name, attributeName) == 0);
    };
    for (int i = derived_ ? derived_->getCount() - 1 : -1; i >= 0; --i) {
        auto* cell = static_cast<ResultMetric*>(derived_->get(i));
        if (matches(cell)) return cell;
    }
    for (ResultMetric* cell = last_; cell; cell = static_cast<ResultMetric*>(cell->getPrevElement())) {
        if (matches(cell)) return cell;
    }
    return nullptr;
}

ListIterator ResultInstance::getDerivedIterator() const { return (derived_ ? *derived_ : noDerivedCells()).iterator(); }

void ResultInstance::copyInto(ResultInstance* copy) const {
    copy->expectedCount_ = expectedCount_;
    for (const ResultMetric* cell = first_; cell; cell = static_cast<const ResultMetric*>(cell->getNextElement())) {
        ResultMetric* c = cell->getDeepCopy();
        const bool key = c->isKey();
        c->setIsKey(false);  // the name is copied as it stands below
        copy->addMetric(c);
        c->setIsKey(key);
    }
    for (int i = 0; derived_ && i < derived_->getCount(); ++i) {
        copy->addDerivedMetric(static_cast<const ResultMetric*>(derived_->get(i))->getDeepCopy());
    }
    if (copy->nameCapacity_ < nameCapacity_) {
        copy->name_ = static_cast<char*>(std::realloc(copy->name_, static_cast<std::size_t>(nameCapacity_)));
        if (!copy->name_) std::abort();
        copy->nameCapacity_ = nameCapacity_;
    }
    std::memcpy(copy->name_, name_, static_cast<std::size_t>(nameLength_) + 1);
    copy->nameLength_ = nameLength_;
    copy->keyCount_ = keyCount_;
    if (timestamp_) copy->setTimestamp(timestamp_);
}

ResultInstance* ResultInstance::getDeepCopy() const {
    auto* copy = new ResultInstance("", expectedCount_);
    copyInto(copy);
    return copy;
}

void ResultInstance::setTimestamp(const char* text) {
    char* copy = text ? strdup(text) : nullptr;
    std::free(timestamp_);
    timestamp_ = copy;
}
