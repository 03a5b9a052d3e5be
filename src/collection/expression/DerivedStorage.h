// DerivedStorage: what the stateful functions of formulas keep between collections, by metric name and row instance
// name. It outlives the rows. All of it is under one mutex, a leaf, so that events and collections of one class may
// evaluate at once.
#pragma once

#include <memory>

class DerivedStorage {
  public:
    DerivedStorage();
    ~DerivedStorage();
    DerivedStorage(const DerivedStorage&) = delete;
    DerivedStorage& operator=(const DerivedStorage&) = delete;

    // Frees everything.
    void clear();

  private:
    struct Records;  // made at first need
    std::unique_ptr<Records> records_;
};
