// Who asked for which action and what came of it: one JSON object a line (RFC 8259) in "<data directory>/actions.log",
// mode 0600. The file is renamed to actions.log.1 at 4 MiB. Any thread; a line that cannot be written is traced.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "host/server/ApiMessage.h"

namespace almanac::host {

struct ActionQuery;
struct ActionResult;

class ActionLog {
  public:
    explicit ActionLog(std::string path) : path_(std::move(path)) {}

    // Before the action runs; its number.
    long long asked(const ActionQuery& query);
    void finished(long long number, const ActionResult& result);
    // Never ran. Callers without a name, who may be anybody, share one line a minute, so that they cannot turn the log
    // over; it tells how often they came since the one before.
    void refused(const std::string& who, const std::string& why, const std::string& command = "");

    static constexpr long kMaxBytes = 4L << 20;

  private:
    void append(const std::string& line);

    const std::string path_;
    std::mutex mutex_;  // guards the file and what follows
    long long last_ = 0;
    long long nameless_ = 0;  // refused since the last line about them
    std::optional<std::chrono::steady_clock::time_point> toldOfNameless_;
};

}  // namespace almanac::host
