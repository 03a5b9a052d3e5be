#include "host/framework/RequestPool.h"

#include <cxxabi.h>
#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include "host/base/HostTrace.h"

namespace almanac::host {

namespace {

// Jobs catch what the agent throws; what is left is memory that ran out, which must not end the process.
void runJob(const RequestPool::Job& job) {
    try {
        job(true);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        HOST_TRACE_FUNCTION();
        host_trace_error("a request ended by an exception");
    }
}

}  // namespace

// Shared with the threads, which are detached: one that hangs inside the agent outlives the pool.
struct RequestPool::Shared : std::enable_shared_from_this<Shared> {
    struct Waiting {
        const void* key;  // null for housekeeping
        Job job;
    };
    struct KeyState {
        std::size_t running = 0;
        std::size_t queued = 0;
    };

    explicit Shared(const Limits& limits_) : limits(limits_) {}

    const Limits limits;
    std::mutex mutex;  // guards all below
    std::condition_variable work, quiet;
    std::deque<Waiting> queue;
    std::unordered_map<const void*, KeyState> keys;
    std::size_t queuedRequests = 0;  // without housekeeping
    std::size_t threads = 0, idle = 0, wakes = 0, running = 0;
    bool refusing = false, stopped = false;

    bool eligible(const Waiting& waiting) {
        return !waiting.key || keys[waiting.key].running < limits.runningPerKey;
    }

    // Takes the first job that may run now.
    bool take(Waiting* out) {
        for (auto it = queue.begin(); it != queue.end(); ++it) {
            if (!eligible(*it)) continue;
            *out = std::move(*it);
            queue.erase(it);
            if (out->key) {
                KeyState& state = keys[out->key];
                --state.queued;
                ++state.running;
                --queuedRequests;
            }
            ++running;
            return true;
        }
        return false;
    }

    void done(const void* key) {
        --running;
        if (key) {
            const auto it = keys.find(key);
            if (--it->second.running == 0 && it->second.queued == 0) keys.erase(it);
        }
        if (running == 0 && queue.empty()) quiet.notify_all();
    }

    // Finds somebody for the job just queued. False if there is nobody and nobody can be made.
    bool wakeOrSpawn() {
        if (idle > wakes) {
            ++wakes;
            work.notify_one();
            return true;
        }
        if (threads >= limits.threads) return true;
        try {
            std::thread([self = shared_from_this()] { self->loop(); }).detach();
            ++threads;
        } catch (const std::system_error&) {
            return threads > 0;
        }
        return true;
    }

    void loop() {
        pthread_setname_np(pthread_self(), "request");
        std::unique_lock lock(mutex);
        for (;;) {
            Waiting next;
            if (take(&next)) {
                lock.unlock();
                runJob(next.job);
                next.job = nullptr;  // what the job holds goes before the lock is taken
                lock.lock();
                done(next.key);
                continue;
            }
            if (stopped || idle >= limits.idleThreads) break;
            ++idle;
            work.wait(lock, [this] { return stopped || wakes > 0; });
            --idle;
            if (wakes > 0) --wakes;
        }
        --threads;
    }
};

RequestPool::RequestPool(const Limits& limits) : shared_(std::make_shared<Shared>(limits)) {}

RequestPool::~RequestPool() {
    refuse();
    stop();
}

RequestPool::Submitted RequestPool::submit(const void* key, Job job) {
    Shared& s = *shared_;
    const std::lock_guard guard(s.mutex);
    if (s.refusing || s.stopped) return Submitted::Stopped;
    // What has been queued but not yet taken by a free thread counts as running.
    if (s.running + s.queuedRequests >= s.limits.threads + s.limits.queue) return Submitted::Busy;
    Shared::KeyState& state = s.keys[key];
    const bool startsNow = state.running + state.queued < s.limits.runningPerKey;
    if (state.running + state.queued >= s.limits.runningPerKey + s.limits.queuePerKey) return Submitted::Busy;
    s.queue.push_back({key, std::move(job)});
    ++state.queued;
    ++s.queuedRequests;
    if (startsNow && !s.wakeOrSpawn()) {
        s.queue.pop_back();
        --s.queuedRequests;
        if (--state.queued == 0 && state.running == 0) s.keys.erase(key);
        return Submitted::Busy;
    }
    return Submitted::Accepted;
}

bool RequestPool::submitHousekeeping(Job job) {
    Shared& s = *shared_;
    const std::lock_guard guard(s.mutex);
    if (s.stopped) return false;
    s.queue.push_front({nullptr, std::move(job)});
    if (s.wakeOrSpawn()) return true;
    s.queue.pop_front();
    return false;
}

void RequestPool::refuse() {
    std::vector<Job> dropped;
    {
        const std::lock_guard guard(shared_->mutex);
        shared_->refusing = true;
        std::deque<Shared::Waiting> kept;
        for (auto& waiting : shared_->queue) {
            if (waiting.key) dropped.push_back(std::move(waiting.job));
            else kept.push_back(std::move(waiting));
        }
        shared_->queue = std::move(kept);
        shared_->queuedRequests = 0;
        for (auto it = shared_->keys.begin(); it != shared_->keys.end();) {
            it->second.queued = 0;
            it = it->second.running == 0 ? shared_->keys.erase(it) : std::next(it);
        }
        if (shared_->running == 0 && shared_->queue.empty()) shared_->quiet.notify_all();
    }
    for (Job& job : dropped) job(false);
}

bool RequestPool::drain(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(shared_->mutex);
    return shared_->quiet.wait_until(lock, deadline,
                                     [this] { return shared_->running == 0 && shared_->queue.empty(); });
}

void RequestPool::stop() {
    std::vector<Job> dropped;
    {
        const std::lock_guard guard(shared_->mutex);
        shared_->refusing = shared_->stopped = true;
        for (auto& waiting : shared_->queue) dropped.push_back(std::move(waiting.job));
        shared_->queue.clear();
        shared_->queuedRequests = 0;
        for (auto& [key, state] : shared_->keys) state.queued = 0;
        shared_->work.notify_all();
    }
    for (Job& job : dropped) job(false);
}

std::size_t RequestPool::threads() const {
    const std::lock_guard guard(shared_->mutex);
    return shared_->threads;
}

}  // namespace almanac::host
