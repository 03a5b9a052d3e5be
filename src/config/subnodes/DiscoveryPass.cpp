#include "config/subnodes/DiscoveryPass.h"

#include <algorithm>

#include "collection/ResultsManager.h"
#include "collection/SubnodeDirectory.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr long kLongestWait = 10;  // seconds, for a collection that runs
constexpr int kPollMilliseconds = 50;

// False if the class was not collected.
bool collect(ResultsManager* dag, const std::string& id, WhenCollecting whenCollecting) {
    TRACE_FUNCTION();
    const timespec start = Clock::monotonic();
    for (;;) {
        const unsigned long seen = VXClientClass::collectionsEnded();
        if (dag->collectAnew(id.c_str())) return true;
        const bool wait = whenCollecting == WhenCollecting::Wait && !HBX_QueryShutdown() &&
                          Clock::wholeSecondsBetween(start, Clock::monotonic()) < kLongestWait;
        if (!wait) break;
        VXClientClass::waitForCollectionAfter(seen, kPollMilliseconds);
    }
    trace_state("%s is being collected, its subnodes are left for a later pass", dag->getAttributeGroup());
    return false;
}

void update(VXClientClass* dag, const std::string& id, WhenCollecting whenCollecting) {
    if (!collect(static_cast<ResultsManager*>(dag), id, whenCollecting)) return;
    if (SubnodeDirectory* directory = subnodeDirectory()) directory->discoveryAttributeGroupWasUpdated(dag);
}

}  // namespace

void updateDiscoveryClasses(const std::function<std::string()>& requestId, WhenCollecting whenCollecting) {
    TRACE_FUNCTION();
    if (!queryClassList) return;
    const SubnodeGuard guard;
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements() && !HBX_QueryShutdown(); c.setToNext()) {
        auto* queryClass = static_cast<VXClientClass*>(c.getCurrentElement());
        const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
        if (!meta || !meta->isDiscoveryAttributeGroup()) continue;
        if (!meta->subnodeType()) {
            update(queryClass, requestId(), whenCollecting);
            continue;
        }
        trace_error("Periodic update has encountered a DAG SAG. This code path is untested.");
        SubnodeDirectory* directory = subnodeDirectory();
        if (!directory) continue;
        for (const ClassPin& clone : directory->getAllSubnodeQueryClasses(meta)) {
            if (HBX_QueryShutdown()) return;
            if (!clone->isZombie()) update(clone.get(), requestId(), whenCollecting);  // its subnode may have gone meanwhile
        }
    }
}
