// load_agents: the moment at which the parsed reference file becomes live tables; and the periodic update of discovery
// attribute groups.
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "actions/TakeActionStatus.h"
#include "actions/TaskLibrary.h"
#include "collection/StartHooks.h"
#include "collection/VXClientClass.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"
#include "collection/status/StatusTables.h"
#include "config/subnodes/DiscoveryPass.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/StopSignal.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "platform/zsb.h"
#include "runtime/AgentEntry.h"
#include "runtime/binding/GenericAgent.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr int kEventLogInterval = 60;     // seconds
constexpr int kDiscoveryInterval = 30;    // seconds
constexpr const char* kFeatures[] = {"AFF_FEAT_DM_PARITY", "AFF_FEAT_AGENT_MGMT", "AFF_FEAT_INTERNATIONALIZATION"};

StopSignal& discoveryStop = *new StopSignal;

template <class F>
void forEachClass(F f) {
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        f(static_cast<VXClientClass*>(c.getCurrentElement()));
    }
}

// Classes of the event log type; each without an interval gets one, unless a refresh interval is set for all.
int getEventLogCount(bool refreshIntervalSet) {
    int count = 0;
    forEachClass([&](VXClientClass* queryClass) {
        if (queryClass->getObjectType() != VX_EVENT_LOG) return;
        ++count;
        if (queryClass->getRefreshInterval() == 0 && !refreshIntervalSet) queryClass->setRefreshInterval(kEventLogInterval);
    });
    return count;
}

int poolSize(int* eventLogs, bool refreshIntervalSet) {
    TRACE_FUNCTION();
    *eventLogs = 0;
    if (const char* text = ZSV1_GetEnv("CDP_DP_THREAD_POOL_SIZE")) return std::atoi(text);
    *eventLogs = getEventLogCount(refreshIntervalSet);
    if (*eventLogs > 0) {
        trace_detail("CDP_DP_THREAD_POOL_SIZE not set, creating a thread pool of size %d for Event Log", *eventLogs);
    } else {
        trace_detail("CDP_DP_THREAD_POOL_SIZE not set, defaulting to 0-- no thread pool will be used");
    }
    return *eventLogs;
}

void makeThreadPool(int size) {
    TRACE_FUNCTION();
    threadPool = nullptr;
    impatientCollectorTimeout = 0;
    if (size < 1) return;
    threadPool = new ThreadPool(size);
    if (const char* text = ZSV1_GetEnv("CDP_DP_IMPATIENT_COLLECTOR_TIMEOUT")) {
        impatientCollectorTimeout = std::atoi(text);
    } else {
        trace_detail("CDP_DP_IMPATIENT_COLLECTOR_TIMEOUT not set, defaulting to 0-- impatient collection will not be used");
    }
}

void makeStatusClasses() {
    if (AttributeGroupMeta* meta = findAttributeGroupMeta("Thread_Pool_Status")) {
        queryClassList->addClientClass(new ThreadPoolStatus("ZAG", "Thread_Pool_Status", threadPool, meta));
    }
    if (AttributeGroupMeta* meta = findAttributeGroupMeta("Take_Action_Status")) {
        auto* status = new TakeActionStatus("ZAG", "Take_Action_Status", meta);
        queryClassList->addClientClass(status);
        if (taskLibrary) taskLibrary->setTakeActionStatus(status);
    }
}

// One table for one query class. True if its group is a discovery group.
bool loadTable(VXClientClass* queryClass) {
    TRACE_FUNCTION();
    const char* group = queryClass->getAttributeGroup();
    AttributeGroupMeta* meta = findAttributeGroupMeta(group);
    if (!meta) {
        trace_error("ERROR: no metadata for attribute group: %s\n", group);
        return false;
    }
    if (!meta->query()) {
        meta->setQuery(queryClass);
        queryClass->setAttributeGroupMeta(meta);
    }
    if (meta->getRequestInfoMap()) {
        trace_detail("Attribute group %s needs request info, making it ineligible for thread pool", group);
        queryClass->setThreadPoolEligible(false);
    }
    trace_detail("Starting HBX agent for attribute group %s <%s>\n", group, meta->applName());
    newGenericAgent(meta->applName(), meta->tableName(), meta);
    queryClass->start();
    return meta->isDiscoveryAttributeGroup();
}

void makeRefreshThread(const char* interval, int eventLogs) {
    TRACE_FUNCTION();
    if (!interval && eventLogs < 1) return;
    refreshThread = new RefreshThread(interval ? std::atoi(interval) : 0);
    const int rc = refreshThread->start();
    if (rc != 0) trace_error("Could not start RefreshThread, rc = %d", rc);
}

int discoveryInterval() {
    TRACE_FUNCTION();
    const char* text = ZSV1_GetEnv("CDP_DISCOVERY_ATTRIBUTE_GROUP_UPDATE_INTERVAL");
    if (!text) {
        trace_detail("No discovery attribute group interval specified. Using 30 seconds.");
        return kDiscoveryInterval;
    }
    const int interval = std::atoi(text);
    if (interval >= 1) return interval;
    trace_error("Invalid discovery attribute group interval specified (%d). Using 30 seconds.", interval);
    return kDiscoveryInterval;
}

bool anyGroupHasSubnodes() {
    HashMapIterator it = metaMap.iterator();
    while (it.hasNext()) {
        it.next();
        const auto* meta = static_cast<const AttributeGroupMeta*>(it.getData());
        if (meta->subnodeType() || meta->isDiscoveryAttributeGroup()) return true;
    }
    return false;
}

void* periodicallyUpdateDiscoveryAttributeGroups(void*) {
    TRACE_FUNCTION();
    const long milliseconds = discoveryInterval() * 1000L;
    do {
        updateDiscoveryAttributeGroups();
    } while (discoveryStop.sleepFor(milliseconds));
    discoveryStop.threadEnded();
    return nullptr;
}

}  // namespace

void updateDiscoveryAttributeGroups() {
    TRACE_FUNCTION();
    trace_detail("Performing periodic discovery attribute group update");
    int number = 0;
    updateDiscoveryClasses([&number] { return "pudag" + std::to_string(number++); }, WhenCollecting::Skip);
}

void startDiscoveryThread() {
    TRACE_FUNCTION();
    discoveryStop.threadStarted();
    pthread_t thread{};
    const int rc = pthread_create(&thread, nullptr, periodicallyUpdateDiscoveryAttributeGroups, nullptr);
    if (rc == 0) {
        pthread_detach(thread);
        return;
    }
    discoveryStop.threadEnded();
    trace_error("Could not start the discovery update thread, rc = %d", rc);
}

bool stopBackgroundThreads(long milliseconds) {
    discoveryStop.stop();
    if (refreshThread) refreshThread->stop(0);
    if (threadPool) threadPool->stop(0);
    // All were asked first and share the time: several that hang take no longer than one.
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const auto left = [end] {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now());
        return static_cast<long>(std::max(rest.count(), std::chrono::milliseconds::rep{0}));
    };
    bool ended = !refreshThread || refreshThread->stop(left());
    ended = (!threadPool || threadPool->stop(left())) && ended;
    ended = stopSubnodeManager(left()) && ended;
    ended = discoveryStop.waitForEnd(left()) && ended;
    // A request that is still inside the agent may hand the pool a job or ask for its figures.
    if (!ended || HBX_RequestsRunning() > 0) return false;
    delete refreshThread;
    refreshThread = nullptr;
    delete threadPool;
    threadPool = nullptr;
    return true;
}

int load_agents() {
    TRACE_FUNCTION();
    const char* refreshInterval = ZSV1_GetEnv("CDP_DP_REFRESH_INTERVAL");
    int eventLogs = 0;
    makeThreadPool(poolSize(&eventLogs, refreshInterval != nullptr));
    makeStatusClasses();
    for (const char* feature : kFeatures) HBX_SetAffinity(feature);
    if (anyGroupHasSubnodes()) getSubnodeManager();
    bool discovery = false;
    forEachClass([&](VXClientClass* queryClass) { discovery = loadTable(queryClass) || discovery; });
    if (discovery) startDiscoveryThread();
    makeRefreshThread(refreshInterval, eventLogs);
    runRegisteredStarts();
    return 0;
}
