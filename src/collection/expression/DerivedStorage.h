// DerivedStorage: what the stateful functions of formulas keep between collections, by metric name and row instance
// name. It outlives the rows. All of it is under one mutex, a leaf, so that events and collections of one class may
// evaluate at once. A class with ever-changing row names grows it until clear().
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class DerivedStorage {
  public:
    // More samples than this are not kept of any row.
    static constexpr int kMostSamples = 1000000;

    DerivedStorage();
    ~DerivedStorage();
    DerivedStorage(const DerivedStorage&) = delete;
    DerivedStorage& operator=(const DerivedStorage&) = delete;

    // Counts one evaluation of the row; the first gives 1.
    long long count(std::string_view metric, std::string_view row);
    // Keeps one more of the latest `samples` values of the row (at least 2) and copies them into `list`, from the oldest
    // to the newest. The first call for a row makes its room; a later call with more samples gets no more than that.
    void addSample(std::string_view metric, std::string_view row, int samples, double value, std::vector<double>* list);
    // Frees everything.
    void clear();

  private:
    struct Record;  // of one metric and row
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    template <class T>
    using ByName = std::unordered_map<std::string, T, Hash, std::equal_to<>>;

    Record& record(std::string_view metric, std::string_view row);

    std::mutex mutex_;
    ByName<ByName<Record>> records_;
};
