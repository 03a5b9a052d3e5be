#include "runtime/binding/GenericAgent.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "collection/ManagedSystemName.h"
#include "collection/ResultsManager.h"
#include "collection/SubnodeDirectory.h"
#include "collection/schedule/ThreadPool.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr int kNotEmitted = 2;
constexpr int kPollMilliseconds = 1000;

const char* shown(const char* name) { return name ? name : HBX_GetOriginnode(); }

VXClientClass* classAt(const List& classes, int i) { return static_cast<VXClientClass*>(classes.get(i)); }

const char* nameAt(const List& names, int i) { return static_cast<const char*>(names.get(i)); }

// Marks a class as used by this request; undone by releaseClass.
void takeClass(VXClientClass* queryClass) {
    queryClass->hold();
    queryClass->setOnQueue(true);
}

void releaseClass(VXClientClass* queryClass) {
    queryClass->setOnQueue(false);
    queryClass->unhold();
}

// Taken before anything is collected: a class is ready once it was unexpired at any moment of the request, and one that
// expires again while the request collects others would otherwise keep it for ever.
std::vector<ClassProgress> progressOf(const List& classes) {
    std::vector<ClassProgress> progress;
    for (int i = 0; i < classes.getCount(); ++i) {
        const int collections = classAt(classes, i)->getPerfstats().collectionCount;
        progress.push_back({collections, !classAt(classes, i)->isExpired()});
    }
    return progress;
}

bool isAggregating(VXClientClass* queryClass) { return static_cast<ResultsManager*>(queryClass)->isAggregatingData(); }

}  // namespace

GenericAgent::GenericAgent(RequestDetail* detail, ContextInfo* context, GenericAgentManager* table)
    : GenericAgentBase(detail, context, table),
      applName_(ApplicationName()),
      tableName_(TableName()),
      meta_(table ? table->attributeGroupMeta() : nullptr) {
    std::snprintf(requestId_, sizeof requestId_, "%p", static_cast<void*>(this));
    TakeSampleConstructor();
}

GenericAgent::~GenericAgent() { TakeSampleDestructor(); }

void GenericAgent::TakeSampleConstructor() {
    TRACE_FUNCTION();
    if (trace_is_on(ZTR1_DETAIL)) dumpFilter(this);
    if (meta_ && meta_->getRequestInfoMap()) ParseRequestInformation();
}

void GenericAgent::collectRequestInfo() {
    TRACE_FUNCTION();
    const HashMap& wanted = *meta_->getRequestInfoMap();
    if (wanted.contains("_REQ_TYPE")) {
        const int type = _get_sampletype();
        const char* text = "DEMAND";
        if (type == HBX_EXCEPTION || type == HBX_EVENT) {
            text = IsHistoryRequest() != 0 ? "HISTORICAL_SITUATION" : "NON_HISTORICAL_SITUATION";
        } else if (type != HBX_DEMAND) {
            trace_detail("Unknown sample type %s\n", std::to_string(type).c_str());
        }
        requestInfo_->addEntry("_REQ_TYPE", strdup(text), -1, -1);
    }
    if (wanted.contains("_FILTER")) requestInfo_->addEntry("_FILTER", strdup(serializeFilter(this).c_str()), -1, -1);
    addFilterEntries(this, wanted, requestInfo_);
}

// The classes that hear of this request; a new list. Only under the subnode lock.
List* GenericAgent::requestInfoClasses() {
    auto* classes = new List;
    SubnodeDirectory* directory = subnodeDirectory();
    if (!meta_->subnodeType()) {
        if (meta_->query()) classes->add(meta_->query());
    } else if (directory && IsHistoryRequest() != 0) {
        const List* all = directory->getAllSubnodeQueryClasses(meta_);
        for (int i = 0; all && i < all->getCount(); ++i) classes->add(all->get(i));
    } else if (directory) {
        ResetGetSubnode();
        for (const char* name = GetSubnode(); name && *name; name = GetSubnode()) {
            if (VXClientClass* c = directory->getSubnodeQueryClass(name, meta_)) classes->add(c);
        }
        ResetGetSubnode();
    }
    return classes;
}

void GenericAgent::ParseRequestInformation() {
    TRACE_FUNCTION();
    requestInfo_ = new RequestInfoList;
    collectRequestInfo();
    if (requestInfo_->getCount() == 0) {
        delete requestInfo_;
        requestInfo_ = nullptr;
        return;
    }
    SubnodeGuard guard;
    List* classes = requestInfoClasses();
    for (int i = 0; i < classes->getCount(); ++i) {
        trace_detail("Setting requestInfo with requestStartedID and reqInfoList for %s\n",
                     classAt(*classes, i)->getAttributeGroup());
        classAt(*classes, i)->setRequestInfo(requestId_, requestInfo_);
    }
    delete classes;
}

void GenericAgent::TakeSampleDestructor() {
    TRACE_FUNCTION();
    if (!requestInfo_) return;
    trace_detail("Clearing filter info");
    {
        SubnodeGuard guard;
        List* classes = requestInfoClasses();
        for (int i = 0; i < classes->getCount(); ++i) {
            trace_detail("Removing requestInfo with requestStartedID and reqInfoList for %s\n",
                         classAt(*classes, i)->getAttributeGroup());
            classAt(*classes, i)->removeRequestInfo(requestId_);
        }
        if (classes->getCount() == 0) trace_detail("Deleted requestInfo - No query classes notified.");
        delete classes;
    }
    delete requestInfo_;
    requestInfo_ = nullptr;
}

int GenericAgent::TakeSample() {
    TRACE_FUNCTION();
    const timespec start = Clock::monotonic();
    if (!meta_) return 0;
    List names;
    List* classes = tsGetQueryList(names);
    if (!classes) return 0;
    std::vector<ClassProgress> progress = progressOf(*classes);
    tsCollectData(*classes, names);
    tsSubmitData(*classes, names, progress, start);
    delete classes;
    return 0;
}

List* GenericAgent::historicalQueryList(List& names) {
    TRACE_FUNCTION();
    trace_detail("Generic Agent <%p> TakeSample subnode history request for all subnodes", static_cast<void*>(this));
    SubnodeDirectory* directory = subnodeDirectory();
    const List* all = directory ? directory->getAllSubnodeQueryClasses(meta_) : nullptr;
    if (!all) {
        trace_error("Historical req recv with SubnodeQueries = NULL. \n");
        return nullptr;
    }
    auto* classes = new List(all);
    for (int i = 0; i < classes->getCount(); ++i) {
        VXClientClass* queryClass = classAt(*classes, i);
        takeClass(queryClass);
        names.add(generateSubnodeManagedSystemName(meta_->applName(), queryClass->getSubnodeKey(), meta_->subnodeType(),
                                                   nullptr));
    }
    return classes;
}

List* GenericAgent::tsGetQueryList(List& names) {
    TRACE_FUNCTION();
    SubnodeGuard guard;
    ResetGetSubnode();
    if (meta_->subnodeType() && IsHistoryRequest() != 0 && QueryState(HBX_STATE_ALL_SUBNODES)) {
        return historicalQueryList(names);
    }
    auto* classes = new List;
    if (!meta_->subnodeType()) {
        if (VXClientClass* queryClass = meta_->query()) {
            takeClass(queryClass);
            classes->add(queryClass);
            names.add(nullptr);
        }
        return classes;
    }
    SubnodeDirectory* directory = subnodeDirectory();
    for (;;) {
        const char* name = GetSubnode();
        if (!name) {
            trace_error("GetSubnode() unexpectedly returned NULL, assuming no more subnodes");
            break;
        }
        if (!*name) break;
        if (!directory || !directory->isManagingSubnode(name)) continue;
        VXClientClass* queryClass = directory->getSubnodeQueryClass(name, meta_);
        if (!queryClass) continue;
        takeClass(queryClass);
        classes->add(queryClass);
        names.add(strdup(name));
    }
    return classes;
}

void GenericAgent::collectOne(VXClientClass* queryClass, const char* name) {
    TRACE_FUNCTION();
    const bool onPool = impatientCollectorTimeout > 0 && queryClass->isThreadPoolEligible() &&
                        !queryClass->isPureEventBased() && !isAggregating(queryClass);
    if (!onPool) {
        trace_detail("Calling collectDataIfNeeded on %s:%s\n", shown(name), queryClass->getAttributeGroup());
        queryClass->collectDataIfNeeded(requestId_);
        return;
    }
    // Kept: this request has set the flag itself, so a job is made only if another holder has cleared it meanwhile; as a
    // rule such a class is left to the refresh thread, and the request sends what the cache holds.
    if (queryClass->isOnQueue()) return;
    trace_detail("Submitting collectDataIfNeeded request to threadpool on %s:%s\n", shown(name),
                 queryClass->getAttributeGroup());
    auto* job = new CollectDataJob(queryClass, requestId_);
    job->setUseCache(true);
    if (threadPool) {
        threadPool->submitJob(job);
    } else {
        trace_error("ERROR: impatientCollectorTimeout is set but threadPool is NULL, can't submit job");
        delete job;
    }
}

void GenericAgent::tsCollectData(const List& classes, const List& names) {
    TRACE_FUNCTION();
    for (int i = 0; i < classes.getCount(); ++i) collectOne(classAt(classes, i), nameAt(names, i));
}

void GenericAgent::submitOne(VXClientClass* queryClass, const char* name, bool impatient) {
    TRACE_FUNCTION();
    SubnodeDirectory* directory = subnodeDirectory();
    if (meta_->isDiscoveryAttributeGroup() && directory) {
        SubnodeGuard guard;
        directory->discoveryAttributeGroupWasUpdated(queryClass);
    }
    if (impatient) {
        trace_detail("Got impatient: returning older cached data for %s:%s", shown(name), queryClass->getAttributeGroup());
    } else {
        trace_detail("Returning fresh data for %s:%s", shown(name), queryClass->getAttributeGroup());
    }
    queryClass->sendDataToHBX(this, shown(name));
    if (IsHistoryRequest() != 0) static_cast<ResultsManager*>(queryClass)->setLastRequestWasHistorical();
    if (name && directory && queryClass->getPerfErrorCode() == SUBNODE_UNAVAILABLE) {
        SubnodeGuard guard;
        directory->updateDiscoveryAttributeGroupForSubnode(name);
    }
}

void GenericAgent::tsSubmitData(List& classes, List& names, std::vector<ClassProgress>& progress, const timespec& start) {
    TRACE_FUNCTION();
    while (classes.getCount() > 0) {
        const unsigned long seen = VXClientClass::collectionsEnded();
        bool impatient = false;
        if (impatientCollectorTimeout > 0) {
            impatient = impatientCollectorTimeout <= Clock::wholeSecondsBetween(start, Clock::monotonic());
        }
        std::vector<int> done;
        for (int i = 0; i < classes.getCount(); ++i) {
            VXClientClass* queryClass = classAt(classes, i);
            ClassProgress& its = progress[static_cast<std::size_t>(i)];
            if (!its.ready) {
                its.ready =
                    !queryClass->isExpired() || queryClass->getPerfstats().collectionCount != its.collectionsBefore;
            }
            const bool onItsWay = !its.ready && !impatient && queryClass->isThreadPoolEligible() &&
                                  !queryClass->isPureEventBased() && !HBX_QueryShutdown();
            if (onItsWay) continue;
            submitOne(queryClass, nameAt(names, i), impatient);
            done.push_back(i);
        }
        {
            SubnodeGuard guard;
            for (auto i = done.rbegin(); i != done.rend(); ++i) {
                releaseClass(static_cast<VXClientClass*>(classes.remove(*i)));
                std::free(names.remove(*i));
                progress.erase(progress.begin() + *i);
            }
        }
        if (classes.getCount() > 0) VXClientClass::waitForCollectionAfter(seen, kPollMilliseconds);
    }
}

int GenericAgent::AddData(char* row, int size) {
    TRACE_MESSAGES();
    SetRowSize(static_cast<unsigned>(size));
    if (trace_is_on(ZTR1_DETAIL)) printRow(row);
    if (_get_sampletype() == HBX_DEMAND || IsRowException(row)) return InsertRow(row);
    return kNotEmitted;
}

void GenericAgent::printRow(const char* row) const {
    TRACE_MESSAGES();
    if (!meta_) return;
    trace_detail("Row: {\n");
    for (int i = 0; i < meta_->noOfColumns(); ++i) {
        const AttributeMeta* column = meta_->columnAt(i);
        const char* at = row + column->offset();
        if (column->isText()) {
            trace_detail("  %s=%.*s\n", column->name(), column->length(), at);
            continue;
        }
        long long value = 0;
        std::memcpy(&value, at, static_cast<std::size_t>(column->length() < 8 ? column->length() : 8));
        if (column->type() == 0) {
            trace_detail("  %s=%d\n", column->name(), static_cast<int>(value));
        } else {
            trace_detail("  %s=%lld\n", column->name(), value);
        }
    }
    trace_detail("}\n");
}
