// Who asked for which action and what came of it: one JSON object a line (RFC 8259) in "<data directory>/actions.log",
// mode 0600. The file is renamed to actions.log.1 at 4 MiB. Any thread; a line that cannot be written is traced.
#pragma once

#include <mutex>
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
    // Never ran.
    void refused(const std::string& who, const std::string& why, const std::string& command = "");

    static constexpr long kMaxBytes = 4L << 20;

  private:
    void append(const std::string& line);

    const std::string path_;
    std::mutex mutex_;  // guards the file and the number
    long long last_ = 0;
};

}  // namespace almanac::host
