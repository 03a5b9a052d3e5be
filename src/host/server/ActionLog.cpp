#include "host/server/ActionLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "host/base/HostTrace.h"
#include "host/base/Secrets.h"
#include "host/framework/ActionBroker.h"
#include "host/model/Json.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr std::chrono::seconds kNamelessPause{60};

// Masked before it is written as JSON, whose escapes would hide a secret and whose names could hold one.
std::string shown(const std::string& text) { return longestSecret() > 0 ? maskSecrets(text, text.size()) : text; }

long long wallMilliseconds() {
    timespec now{};
    ZSV1_GetTime(&now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Why an action did not come to an end.
std::string reasonOf(const ActionResult& result) {
    if (!result.refusal.empty()) return result.refusal;
    switch (result.status) {
        case SampleStatus::Stopping:
            return "the agent shuts down";
        case SampleStatus::Busy:
            return "too many others wait";
        case SampleStatus::NotReady:
            return "the agent is not ready";
        default:
            return "the agent failed it";
    }
}

JsonWriter& begin(JsonWriter& json, const char* event) {
    return json.beginObject().key("time_ms").value(wallMilliseconds()).key("event").value(event);
}

}  // namespace

long long ActionLog::asked(const ActionQuery& query) {
    long long number = 0;
    {
        const std::lock_guard guard(mutex_);
        number = ++last_;
    }
    std::string line;
    JsonWriter json(&line);
    begin(json, "asked").key("number").value(number).key("who").value(query.user).key("node").value(query.subnode);
    if (query.task.empty()) {
        json.key("command").value(shown(query.command));
    } else {
        json.key("task").value(query.task).key("values").beginArray();
        for (const auto& value : query.values) {
            if (value)
                json.value(shown(*value));
            else
                json.null();
        }
        json.endArray();
    }
    json.endObject();
    append(line);
    return number;
}

void ActionLog::finished(long long number, const ActionResult& result) {
    std::string line;
    JsonWriter json(&line);
    const bool done = result.status == SampleStatus::Ok;
    begin(json, done ? "finished" : "failed").key("number").value(number).key("command").value(shown(result.command));
    if (done) json.key("return_code").value(result.returnCode);
    json.key("message").value(shown(done ? result.message : reasonOf(result)));
    json.key("duration_s").value(std::chrono::duration<double>(result.duration).count()).endObject();
    append(line);
}

void ActionLog::refused(const std::string& who, const std::string& why, const std::string& command) {
    long long times = 1;
    if (who.empty()) {
        const std::lock_guard guard(mutex_);
        const auto now = std::chrono::steady_clock::now();
        ++nameless_;
        if (toldOfNameless_ && now - *toldOfNameless_ < kNamelessPause) return;
        toldOfNameless_ = now;
        times = std::exchange(nameless_, 0);
    }
    std::string line;
    JsonWriter json(&line);
    begin(json, "refused").key("who").value(who).key("why").value(why).key("command").value(shown(command));
    json.key("times").value(times).endObject();
    append(line);
}

void ActionLog::append(const std::string& line) {
    HOST_TRACE_FUNCTION();
    const std::string text = line + '\n';
    const std::lock_guard guard(mutex_);
    struct stat status {};
    if (stat(path_.c_str(), &status) == 0 && status.st_size >= kMaxBytes) std::rename(path_.c_str(), (path_ + ".1").c_str());
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    const bool good = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!good) host_trace_error("%s: %s; this line is lost: %s", path_.c_str(), std::strerror(errno), line.c_str());
    if (fd >= 0) close(fd);
}

}  // namespace almanac::host
