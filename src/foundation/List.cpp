#include "foundation/List.h"

#include <cstdlib>
#include <cstring>

namespace {
constexpr int kStep = 10;
}

List::List(const List* other) : count_(other->count_), capacity_(other->capacity_) {
    if (capacity_ == 0) return;
    const std::size_t size = static_cast<std::size_t>(capacity_) * sizeof(void*);
    items_ = static_cast<void**>(std::malloc(size));
    if (!items_) std::abort();
    std::memcpy(items_, other->items_, size);
}

List::~List() { std::free(items_); }

void List::enlarge() {
    // A fixed step of slots is the contract's pace; past a thousand items the step grows with the list so that
    // a long list is not copied once for every ten items.
    const int step = capacity_ < 1000 ? kStep : capacity_ / 2;
    const std::size_t size = static_cast<std::size_t>(capacity_ + step) * sizeof(void*);
    void** items = static_cast<void**>(std::realloc(items_, size));
    if (!items) std::abort();
    std::memset(items + capacity_, 0, static_cast<std::size_t>(step) * sizeof(void*));
    items_ = items;
    capacity_ += step;
}

void* List::add(const void* item) {
    if (count_ == capacity_) enlarge();
    items_[count_++] = const_cast<void*>(item);
    return const_cast<void*>(item);
}

void List::insert(int i, const void* item) {
    if (i < 0) return;
    if (i >= count_) {
        add(item);
        return;
    }
    if (count_ == capacity_) enlarge();
    std::memmove(items_ + i + 1, items_ + i, static_cast<std::size_t>(count_ - i) * sizeof(void*));
    items_[i] = const_cast<void*>(item);
    ++count_;
}

void* List::remove(int i) {
    if (i < 0 || i >= count_) return nullptr;
    void* removed = items_[i];
    --count_;
    std::memmove(items_ + i, items_ + i + 1, static_cast<std::size_t>(count_ - i) * sizeof(void*));
    return removed;
}

int List::find(const void* what, int (*cmp)(const void* item, const void* what)) const {
    for (int i = 0; i < count_; ++i) {
        if (cmp ? cmp(items_[i], what) == 0 : items_[i] == what) return i;
    }
    return -1;
}

void* List::peek() const { return count_ > 0 ? items_[count_ - 1] : nullptr; }

void* List::pop() { return count_ > 0 ? items_[--count_] : nullptr; }

void List::clear() {
    count_ = 0;
    if (items_) std::memset(items_, 0, static_cast<std::size_t>(capacity_) * sizeof(void*));
}

ListIterator List::iterator() const { return ListIterator(this); }
