// The last events, bounded in number and bytes. Every operation may be called from any thread; publish only
// queues.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/framework/RequestBroker.h"

namespace almanac::host {

struct Event {
    std::uint64_t number = 0;  // from 1, without gaps
    std::int64_t time = 0;     // wall clock, milliseconds since the epoch
    std::string table;
    Batch row;  // one row
};

class EventFeed {
  public:
    explicit EventFeed(std::size_t maxEvents = 1000, std::size_t maxBytes = std::size_t{1} << 20)
        : maxEvents_(maxEvents), maxBytes_(maxBytes) {}

    // Takes every row of a delivery as an event.
    void publish(const std::string& table, const Batch& rows);

    // Opens an event request on the table whose rows come here; again for a table that is followed: nothing.
    // False if the broker does not take it.
    bool follow(RequestBroker& broker, const std::shared_ptr<TableEntry>& table);
    // Ends what follow() opened.
    void unfollowAll();

    // The events behind number `after`, oldest first, at most `limit`.
    std::vector<std::shared_ptr<const Event>> since(std::uint64_t after, std::size_t limit) const;
    std::uint64_t lastNumber() const;

  private:
    const std::size_t maxEvents_, maxBytes_;
    mutable std::mutex mutex_;
    std::deque<std::shared_ptr<const Event>> events_;
    std::size_t bytes_ = 0;
    std::uint64_t last_ = 0;
    std::map<std::string, std::shared_ptr<OpenRequest>> followed_;
};

}  // namespace almanac::host
