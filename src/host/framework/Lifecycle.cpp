#include "host/framework/Lifecycle.h"

#include "host/framework/AgentCall.h"
#include "host/framework/Framework.h"
#include "platform/zhb.h"

namespace almanac::host {

bool Lifecycle::enterMain() {
    const std::lock_guard guard(mutex_);
    if (started_) return false;
    started_ = true;
    mainThread_ = std::this_thread::get_id();
    return true;
}

void Lifecycle::shutDown(int reason, std::chrono::nanoseconds wait) {
    std::unique_lock lock(mutex_);
    if (!asked_) {
        asked_ = true;
        reason_ = reason;
        askedAt_ = std::chrono::steady_clock::now();
        changed_.notify_all();
    }
    if (!started_ || mainThread_ == std::this_thread::get_id() || AgentCall::onThisThread()) return;
    changed_.wait_for(lock, wait, [this] { return left_; });
}

bool Lifecycle::asked() const {
    const std::lock_guard guard(mutex_);
    return asked_;
}

int Lifecycle::reason() const {
    const std::lock_guard guard(mutex_);
    return reason_;
}

void Lifecycle::waitAsked() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return asked_; });
}

std::chrono::steady_clock::time_point Lifecycle::askedAt() const {
    const std::lock_guard guard(mutex_);
    return asked_ ? askedAt_ : std::chrono::steady_clock::now();
}

void Lifecycle::end() {
    const std::lock_guard guard(mutex_);
    ended_ = true;
}

bool Lifecycle::ended() const {
    const std::lock_guard guard(mutex_);
    return ended_;
}

void Lifecycle::leaveMain() {
    const std::lock_guard guard(mutex_);
    left_ = true;
    changed_.notify_all();
}

}  // namespace almanac::host

int HBX_Shutdown(int reason) {
    almanac::host::framework().lifecycle.shutDown(reason);
    return 0;
}

int HBX_QueryShutdown() { return almanac::host::framework().lifecycle.asked() ? 1 : 0; }
