#include "collection/ResultsManager.h"

void ResultChain::append(ResultInstance* row) {
    row->setPrevElement(last_);
    row->setNextElement(nullptr);
    (last_ ? last_->setNextElement(row) : void(first_ = row));
    last_ = row;
    ++count_;
}

void ResultChain::prepend(ResultInstance* row) {
    row->setPrevElement(nullptr);
    row->setNextElement(first_);
    (first_ ? first_->setPrevElement(row) : void(last_ = row));
    first_ = row;
    ++count_;
}

void ResultChain::unlink(ResultInstance* row) {
    auto* previous = static_cast<ResultInstance*>(row->getPrevElement());
    ResultInstance* next = nextRow(row);
    (previous ? previous->setNextElement(next) : void(first_ = next));
    (next ? next->setPrevElement(previous) : void(last_ = previous));
    row->setPrevElement(nullptr);
    row->setNextElement(nullptr);
    --count_;
}

void ResultChain::replace(ResultInstance* old, ResultInstance* row) {
    auto* previous = static_cast<ResultInstance*>(old->getPrevElement());
    ResultInstance* next = nextRow(old);
    row->setPrevElement(previous);
    row->setNextElement(next);
    (previous ? previous->setNextElement(row) : void(first_ = row));
    (next ? next->setPrevElement(row) : void(last_ = row));
    old->setPrevElement(nullptr);
    old->setNextElement(nullptr);
}

void ResultChain::clear() {
    for (ResultInstance* row = first_; row;) {
        ResultInstance* next = nextRow(row);
        delete row;
        row = next;
    }
    first_ = last_ = nullptr;
    count_ = 0;
}

void ResultChain::takeAll(ResultChain& other) {
    clear();
    first_ = other.first_;
    last_ = other.last_;
    count_ = other.count_;
    other.first_ = other.last_ = nullptr;
    other.count_ = 0;
}
