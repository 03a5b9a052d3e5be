// Retired clones: who still needs them, and their end.
#include <algorithm>
#include <cstdlib>

#include "collection/ResultsManager.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

constexpr long kDefaultInterval = 600;  // seconds
// An interval of 0 sleeps so long between two cycles: nothing is gained by a loop that never rests.
constexpr long kShortestSleep = 100;  // milliseconds

long sleepMilliseconds() {
    TRACE_FUNCTION();
    const char* text = ZSV1_GetEnv("CDP_DP_GARBAGE_COLLECTION_INTERVAL");
    const long seconds = text ? std::atol(text) : kDefaultInterval;
    trace_detail("Garbage collection interval is %ld seconds", seconds);
    return std::clamp(seconds, 0L, 10L * 365 * 24 * 3600) * 1000;
}

// All that a class refers to but itself, each as often as it does.
std::vector<const VXClientClass*> refereesOf(VXClientClass* referrer) {
    std::vector<const VXClientClass*> all;
    const std::unique_ptr<List> references(referrer->getQueryReferences());
    if (!references) return all;
    ListIterator it = references->iterator();
    while (it.hasNext()) {
        const auto* referee = static_cast<const VXClientClass*>(it.next());
        if (referee != referrer) all.push_back(referee);
    }
    return all;
}

void addReferees(VXClientClass* referrer, std::unordered_set<const VXClientClass*>* all) {
    for (const VXClientClass* referee : refereesOf(referrer)) all->insert(referee);
}

bool isBusy(VXClientClass* zombie) { return zombie->isOnQueue() || static_cast<ResultsManager*>(zombie)->isCollecting(); }

}  // namespace

void SubnodeManager::startZombieKiller() {
    TRACE_FUNCTION();
    const auto body = [](void* self) -> void* {
        static_cast<SubnodeManager*>(self)->zombieKiller();
        return nullptr;
    };
    stop_.threadStarted();
    const int rc = pthread_create(&thread_, nullptr, body, this);
    threadRuns_ = rc == 0;
    if (threadRuns_) return;
    stop_.threadEnded();
    trace_error("Could not start the zombie collection thread, rc = %d", rc);
}

void SubnodeManager::zombieKiller() {
    TRACE_FUNCTION();
    const long milliseconds = std::max(sleepMilliseconds(), kShortestSleep);
    while (stop_.sleepFor(milliseconds)) collectGarbage();
    stop_.threadEnded();
}

bool SubnodeManager::stopZombieKiller(long milliseconds) {
    stop_.stop();
    if (!stop_.waitForEnd(milliseconds)) return false;
    if (threadRuns_) pthread_join(thread_, nullptr);
    threadRuns_ = false;
    return true;
}

int SubnodeManager::zombieCount() {
    const SubnodeGuard locked(this);
    return static_cast<int>(zombies_.size());
}

// What the classes in use refer to: they too may still read from a clone that has been retired.
std::unordered_set<const VXClientClass*> SubnodeManager::refereesOfLive() const {
    std::unordered_set<const VXClientClass*> all;
    const auto addAll = [&all](ListCursor c) {
        for (; c.hasMoreElements(); c.setToNext()) addReferees(static_cast<VXClientClass*>(c.getCurrentElement()), &all);
    };
    if (queryClassList) addAll(queryClassList->getClassListCursor());
    for (const auto& [msn, entry] : msnToQueries_) addAll(entry->classes.getClassListCursor());
    return all;
}

// Takes out of the zombies those that nobody refers to and nobody uses. They are in no map, so nobody can find them
// any more.
std::vector<VXClientClass*> SubnodeManager::takeDeletable() {
    TRACE_FUNCTION();
    std::vector<VXClientClass*> deletable;
    if (zombies_.empty()) return deletable;
    std::unordered_set<const VXClientClass*> needed = refereesOfLive();
    for (VXClientClass* zombie : zombies_) addReferees(zombie, &needed);
    std::vector<VXClientClass*> kept;
    for (auto it = zombies_.rbegin(); it != zombies_.rend(); ++it) {
        VXClientClass* zombie = *it;
        const auto id = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(zombie));
        if (needed.count(zombie) > 0) {
            trace_detail("Query Object %08x found on referees list, is not a root", id);
        } else if (!zombie->isHeld() && !isBusy(zombie)) {
            trace_detail("Query Object %08x is quiescent-- deleting", id);
            deletable.push_back(zombie);
            continue;
        } else {
            trace_detail("Query Object %08x is still in use-- not deleting", id);
        }
        kept.push_back(zombie);
    }
    std::reverse(kept.begin(), kept.end());
    zombies_.swap(kept);
    return deletable;
}

// Zombies that read each other in a ring would keep each other for ever. Lets those go of what they read that nobody
// holds but others of them; false if there are none. As they are in no map, nobody can come to hold one meanwhile.
bool SubnodeManager::letRingsGo() {
    TRACE_FUNCTION();
    if (zombies_.empty()) return false;
    std::unordered_map<const VXClientClass*, std::vector<const VXClientClass*>> reads;
    std::unordered_map<const VXClientClass*, int> pins;
    for (VXClientClass* zombie : zombies_) {
        for (const VXClientClass* referee : reads[zombie] = refereesOf(zombie)) ++pins[referee];
    }
    const std::unordered_set<const VXClientClass*> needed = refereesOfLive();
    std::vector<const VXClientClass*> used;
    for (VXClientClass* zombie : zombies_) {
        if (isBusy(zombie) || needed.count(zombie) > 0 || zombie->getHolders() != pins[zombie]) used.push_back(zombie);
    }
    std::unordered_set<const VXClientClass*> kept;
    while (!used.empty()) {
        const VXClientClass* zombie = used.back();
        used.pop_back();
        if (!kept.insert(zombie).second) continue;
        if (const auto its = reads.find(zombie); its != reads.end()) used.insert(used.end(), its->second.begin(), its->second.end());
    }
    bool any = false;
    for (VXClientClass* zombie : zombies_) {
        if (reads[zombie].empty() || kept.count(zombie) > 0) continue;
        trace_detail("Query Object %08x lets go of what it reads", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(zombie)));
        zombie->releaseQueryReferences();
        any = true;
    }
    return any;
}

int SubnodeManager::collectGarbage() {
    TRACE_FUNCTION();
    int deleted = 0;
    int lastCount = -1;
    int curCount = zombieCount();
    while (curCount != lastCount) {
        trace_detail("Starting garbage collection cycle, lastCount = %d, curCount = %d", lastCount, curCount);
        lastCount = curCount;
        std::vector<VXClientClass*> doomed;
        {
            const SubnodeGuard locked(this);
            doomed = takeDeletable();
            if (doomed.empty() && letRingsGo()) doomed = takeDeletable();
            curCount = static_cast<int>(zombies_.size());
        }
        // Outside the lock: a provider's end may take its time.
        for (VXClientClass* zombie : doomed) delete zombie;
        deleted += static_cast<int>(doomed.size());
    }
    return deleted;
}
