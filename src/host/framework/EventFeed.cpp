#include "host/framework/EventFeed.h"

#include "platform/zsb.h"

namespace almanac::host {

void EventFeed::publish(const std::string& table, const Batch& rows) {
    timespec now;
    ZSV1_GetTime(&now);
    for (std::size_t i = 0; i < rows.count(); ++i) {
        auto event = std::make_shared<Event>();
        event->time = std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
        event->table = table;
        event->row = Batch(rows.sharedLayout());
        const std::size_t bytes = rows.layout()->rowSize;
        if (!event->row.append(rows.row(i), bytes)) return;
        const std::lock_guard guard(mutex_);
        event->number = ++last_;
        events_.push_back(std::move(event));
        bytes_ += bytes;
        while (!events_.empty() && (events_.size() > maxEvents_ || bytes_ > maxBytes_)) {
            bytes_ -= events_.front()->row.layout()->rowSize;
            events_.pop_front();
        }
    }
}

bool EventFeed::follow(RequestBroker& broker, const std::shared_ptr<TableEntry>& table) {
    {
        const std::lock_guard guard(mutex_);
        if (!followed_.emplace(table->name(), nullptr).second) return true;
    }
    RequestSpec spec;
    spec.type = HBX_EVENT;
    auto request = broker.open(table, std::move(spec), [this, name = table->name()](Delivery&& delivery) {
        publish(name, delivery.rows);
    });
    const std::lock_guard guard(mutex_);
    if (!request) {
        followed_.erase(table->name());
        return false;
    }
    followed_[table->name()] = std::move(request);
    return true;
}

void EventFeed::unfollowAll() {
    std::map<std::string, std::shared_ptr<OpenRequest>> gone;
    const std::lock_guard guard(mutex_);
    std::swap(gone, followed_);
}

std::vector<std::shared_ptr<const Event>> EventFeed::since(std::uint64_t after, std::size_t limit) const {
    std::vector<std::shared_ptr<const Event>> found;
    const std::lock_guard guard(mutex_);
    for (const auto& event : events_) {
        if (event->number > after && found.size() < limit) found.push_back(event);
    }
    return found;
}

std::uint64_t EventFeed::lastNumber() const {
    const std::lock_guard guard(mutex_);
    return last_;
}

}  // namespace almanac::host
