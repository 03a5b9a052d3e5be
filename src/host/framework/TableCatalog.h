// The tables that the agent has registered, what their rows look like, and how their requests fare. Every
// operation may be called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/model/Table.h"
#include "platform/zhb.h"

namespace almanac::host {

struct TableStatistics {
    std::uint64_t requests = 0;  // samples asked for, whatever became of them
    std::uint64_t answered = 0;
    std::uint64_t failed = 0;    // the agent threw, or made no request
    std::uint64_t timeouts = 0;  // clients that did not wait any longer
    std::uint64_t refused = 0;   // busy
    int running = 0;
    std::int64_t lastStart = 0;  // wall clock, milliseconds since the epoch; 0 before the first
    std::uint64_t lastRows = 0;  // of the last answer
    std::chrono::nanoseconds lastDuration{0};
};

// One table. Entries are shared and outlive their removal from the catalog.
class TableEntry {
  public:
    explicit TableEntry(TableManager* manager);

    const std::string& name() const { return name_; }
    const std::string& application() const { return application_; }
    TableManager* manager() const { return manager_; }
    std::shared_ptr<const TableLayout> layout() const;  // null before it has been learned
    TableStatistics statistics() const;

    // Asks the agent what the columns are, through a request that is never sampled. Calls the agent: on the
    // loader's or a request thread only. False if the agent gives no request or no column that can be used.
    bool learn();

    void countRequest();
    void countRefused();
    void countTimeout();
    void countStart();
    void countEnd(bool answered, std::uint64_t rows, std::chrono::nanoseconds duration);

  private:
    const std::string name_, application_;
    TableManager* const manager_;
    mutable std::mutex mutex_;
    std::shared_ptr<const TableLayout> layout_;
    TableStatistics statistics_;
};

class TableCatalog {
  public:
    // Adds a table. A second table of the same application and name is kept for events but never answers
    // requests.
    std::shared_ptr<TableEntry> add(TableManager* manager);
    void forget(TableManager* manager);

    // The tables that answer requests, in the order of their registration.
    std::vector<std::shared_ptr<TableEntry>> list() const;
    // By table name, ASCII case ignored unless two names differ by it alone; null if there is none.
    std::shared_ptr<TableEntry> find(std::string_view name) const;
    std::string nearest(std::string_view name) const;
    TableManager* findManager(std::string_view application, std::string_view name) const;

    // Learns the layout of every table that has none yet.
    void learnAll();

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<TableEntry>> entries_;
};

}  // namespace almanac::host
