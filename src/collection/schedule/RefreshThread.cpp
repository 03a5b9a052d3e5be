#include "collection/schedule/RefreshThread.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "collection/SubnodeDirectory.h"
#include "collection/VXClientClass.h"
#include "collection/schedule/ThreadPool.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "runtime/reference/AttributeGroupMeta.h"

RefreshThread* refreshThread = nullptr;

namespace {

bool isTemplate(const VXClientClass* queryClass) {
    const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
    return meta && meta->subnodeType() && !queryClass->getSubnodeKey();
}

// The clones of a subnode type's template, pinned.
ClassPins clonesOf(const VXClientClass* queryClass) {
    SubnodeDirectory* directory = subnodeDirectory();
    return directory ? directory->getAllSubnodeQueryClasses(queryClass->getAttributeGroupMeta()) : ClassPins();
}

}  // namespace

RefreshThread::RefreshThread(int interval) : refreshInterval_(interval) {
    TRACE_FUNCTION();
    const long now = static_cast<long>(Clock::monotonic().tv_sec);
    const char* delayText = ZSV1_GetEnv("CDP_DP_INITIAL_COLLECTION_DELAY");
    const long delay = delayText ? std::atoi(delayText) : 0;
    if (delayText) trace_detail("Using initial collection delay of %ld", delay);
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        schedule(static_cast<VXClientClass*>(c.getCurrentElement()), now, delayText != nullptr, delay);
    }
    trace_detail("Dump of initial scheduler queue:");
    int number = 0;
    for (const auto& [due, q] : schedule_) {
        trace_detail("%3d: %s@%ld (interval %d)", number++, q->getAttributeGroup(), due, q->getRefreshInterval());
    }
}

void RefreshThread::schedule(VXClientClass* queryClass, long now, bool delaySet, long delay) {
    TRACE_FUNCTION();
    const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
    if (!meta) trace_detail("Note: Query Class %s has no metadata", queryClass->getAttributeGroup());
    if (meta && meta->isDiscoveryAttributeGroup()) return;
    const int interval = queryClass->getRefreshInterval() > 0 ? queryClass->getRefreshInterval() : refreshInterval_;
    if (interval <= 0) {
        trace_detail("Attribute group %s has no refresh interval-- not collecting asynchronously",
                     queryClass->getAttributeGroup());
        return;
    }
    queryClass->setRefreshInterval(interval);
    if (isTemplate(queryClass)) {
        SubnodeGuard guard;  // so that no clone is being copied from the template as it was
        for (const ClassPin& clone : clonesOf(queryClass)) clone->setRefreshInterval(interval);
    }
    if (!queryClass->isThreadPoolEligible()) {
        trace_detail("Attribute group %s is not thread pool eligible-- not collecting asynchronously",
                     queryClass->getAttributeGroup());
        return;
    }
    queryClass->setNextRefresh(now + (delaySet ? delay : interval));
    insert(queryClass);
}

void RefreshThread::insert(VXClientClass* queryClass) {
    const long due = queryClass->getNextRefresh();
    schedule_.emplace_hint(schedule_.lower_bound(due), due, queryClass);  // Kept: a tie goes ahead of its equals.
}

void RefreshThread::addToSchedQueue(VXClientClass* queryClass) {
    const int interval = queryClass->getRefreshInterval() >= 1 ? queryClass->getRefreshInterval() : refreshInterval_;
    // From the time that was due, not from now: the schedule does not drift and a late wake-up catches up.
    queryClass->setNextRefresh(queryClass->getNextRefresh() + interval);
    insert(queryClass);
}

void RefreshThread::run() {
    TRACE_FUNCTION();
    if (schedule_.empty()) {
        trace_detail("Scheduler queue is empty, refresh thread terminating");
        return;
    }
    while (!stop_.isStopped() && !HBX_QueryShutdown()) {
        VXClientClass* queryClass = schedule_.extract(schedule_.begin()).mapped();
        const timespec now = Clock::monotonic();
        const long due = queryClass->getNextRefresh();
        const long ms = (due - static_cast<long>(now.tv_sec)) * 1000 - now.tv_nsec / 1000000;
        if (ms > 0) {
            trace_detail("Preparing to sleep %ld millis", ms);
            const bool goOn = stop_.sleepFor(ms);
            trace_detail("Scheduled to wake at %ld, actually woke at %ld", due, static_cast<long>(Clock::monotonic().tv_sec));
            if (!goOn) return;
        } else {
            trace_detail("Not sleeping, next interval is too small");
        }
        addToSchedQueue(queryClass);
        startJobs(queryClass);
    }
}

void RefreshThread::startJobs(VXClientClass* queryClass) {
    TRACE_FUNCTION();
    if (!isTemplate(queryClass)) {
        trace_detail("Forcing asynchronous data collection of attribute group %s", queryClass->getAttributeGroup());
        startJob(queryClass);
        return;
    }
    for (const ClassPin& clone : clonesOf(queryClass)) {
        // Without a pool this takes as long as all the collections: a stop need not wait for them, and a subnode that was
        // removed meanwhile is not asked any more.
        if (stop_.isStopped() || HBX_QueryShutdown()) return;
        if (clone->isZombie()) continue;
        trace_detail("Forcing asynchronous data collection of subnode attribute group %s:%s on %s",
                     clone->getProductCode(), clone->getAttributeGroup(), clone->getSubnodeKey());
        startJob(clone.get());
    }
}

void RefreshThread::startJob(VXClientClass* queryClass) {
    TRACE_FUNCTION();
    // The flag alone would not do: each request clears it, and a pool that hangs would gather one more job for each.
    if (queryClass->isOnQueue() || queryClass->hasJob()) {
        trace_detail("%s already on thread pool queue, not adding again", queryClass->getAttributeGroup());
        queryClass->countSkippedInterval();
        return;
    }
    char id[16];
    std::snprintf(id, sizeof id, "%08x", nextJobId_++);
    if (threadPool) {
        trace_detail("Submitting job to thread pool");
        threadPool->submitJob(new CollectDataJob(queryClass, id));
    } else {
        queryClass->collectDataIfNeeded(id);
    }
}

int RefreshThread::start() {
    stop_.threadStarted();
    pthread_t thread;
    const int rc = pthread_create(&thread, nullptr, startRefreshThread, this);
    if (rc == 0) {
        pthread_detach(thread);
    } else {
        stop_.threadEnded();
    }
    return rc;
}

bool RefreshThread::stop(long milliseconds) {
    stop_.stop();
    return stop_.waitForEnd(milliseconds);
}

void* startRefreshThread(void* refresh) {
    TRACE_FUNCTION();
    auto* object = static_cast<RefreshThread*>(refresh);
    // Kept: the figure is the interval in seconds divided by 1000.
    trace_detail("Starting refresh thread with interval: %d", object->getRefreshInterval() / 1000);
    object->run();
    object->threadEnded();
    return nullptr;
}
