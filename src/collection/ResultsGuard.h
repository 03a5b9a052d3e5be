#pragma once

#include <functional>
#include <utility>

#include "collection/ResultsManager.h"

// Holds the results locks of up to two classes, in the order of their addresses; null ones are left out, one class
// given twice is locked once.
class ResultsGuard {
  public:
    explicit ResultsGuard(ResultsManager* one, ResultsManager* other = nullptr) : first_(one), second_(other) {
        if (first_ == second_) second_ = nullptr;
        if (first_ && second_ && std::less<>()(second_, first_)) std::swap(first_, second_);
        if (first_) first_->acquireResultsLock();
        if (second_) second_->acquireResultsLock();
    }
    ~ResultsGuard() {
        if (second_) second_->releaseResultsLock();
        if (first_) first_->releaseResultsLock();
    }
    ResultsGuard(const ResultsGuard&) = delete;
    ResultsGuard& operator=(const ResultsGuard&) = delete;

  private:
    ResultsManager* first_;
    ResultsManager* second_;
};
