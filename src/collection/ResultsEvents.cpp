// Events: one row at once, and the bounded cache from which requests on pure event groups are answered.
#include <vector>

#include "collection/JoinedEventRouter.h"
#include "collection/ManagedSystemName.h"
#include "collection/ResultsManager.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "runtime/reference/AttributeGroupMeta.h"
#include "runtime/reference/EventSink.h"

void ResultsManager::sendEventData(ResultInstance* row) {
    TRACE_FUNCTION();
    internalCalculateDerived(row);
    const JoinedEventRouter* router = getObjectType() != VX_JOIN ? joinedEventRouter() : nullptr;
    const bool joined = router && !router->isIdle();
    // A pure class's cache owns the row once it is sent, and another event may push it out: the joins get a copy.
    ResultInstance* copy = joined && isPureEventBased() ? row->getDeepCopy() : nullptr;
    sendEventDataToHBX(row);
    if (joined) sendJoinedEventData(copy ? copy : row);
    delete copy;
}

void ResultsManager::sendJoinedEventData(ResultInstance* row) {
    if (JoinedEventRouter* router = joinedEventRouter()) router->routeEvent(this, row);
}

void ResultsManager::sendEventDataToHBX(ResultInstance* row) {
    TRACE_FUNCTION();
    char timestamp[32];
    Clock::formatTimeStamp(Clock::wall().tv_sec, timestamp);
    const AttributeGroupMeta* meta = sendingEnabled_ ? findAttributeGroupMeta(getAttributeGroup()) : nullptr;
    EventSink* sink = meta ? meta->getManager() : nullptr;  // none before the table exists: not sent, still cached
    if (sink && rowIsComplete(row)) {
        std::vector<char> buffer(static_cast<std::size_t>(meta->rowSize()) + 1, '\0');
        char msn[MANAGED_SYSTEM_NAME_SIZE];
        const char* origin = HBX_GetOriginnode();
        if (!getManagedSystemName().empty()) {
            origin = getManagedSystemName().c_str();
        } else if (meta->subnodeType()) {
            origin = generateSubnodeManagedSystemName(meta->applName(), getSubnodeKey(), meta->subnodeType(), msn);
        }
        writeRow(buffer.data(), meta, row, origin ? origin : "", timestamp, HintUse::Ignore);
        sink->EventArrived(buffer.data(), meta->rowSize());
    }
    if (!isPureEventBased()) return;
    row->setTimestamp(timestamp);
    if (pureCacheCapacity_ < 1) {  // no cache to own the row, and nobody else does
        delete row;
        return;
    }
    addToPureCache(row);
}

void ResultsManager::addToPureCache(ResultInstance* row) {
    if (!row || pureCacheCapacity_ < 1) return;
    std::lock_guard guard(pureCacheLock_);
    pureCache_.prepend(row);
    if (pureCache_.count() <= pureCacheCapacity_) return;
    ResultInstance* oldest = pureCache_.last();
    pureCache_.unlink(oldest);
    delete oldest;
}

void ResultsManager::clearPureCache() {
    std::lock_guard guard(pureCacheLock_);
    pureCache_.clear();
}
