#include "runtime/binding/GenericAgent.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "collection/ResultsManager.h"
#include "collection/SubnodeDirectory.h"
#include "collection/schedule/ThreadPool.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr int kNotEmitted = 2;
constexpr int kPollMilliseconds = 1000;

bool isAggregating(VXClientClass* queryClass) { return static_cast<ResultsManager*>(queryClass)->isAggregatingData(); }

}  // namespace

AskedClass::AskedClass(ClassPin queryClass, const char* node)
    : class_(std::move(queryClass)),
      node_(node ? node : ""),
      hasNode_(node != nullptr),
      // Taken before anything is collected: a class is ready once it was unexpired at any moment of the request, and one
      // that expires again while the request collects others would otherwise keep it for ever.
      collectionsBefore_(class_->getPerfstats().collectionCount),
      ready_(!class_->isExpired()) {
    class_->setOnQueue(true);
}

AskedClass::~AskedClass() {
    if (class_) class_->setOnQueue(false);
}

const char* AskedClass::shownNode() const { return hasNode_ ? node_.c_str() : HBX_GetOriginnode(); }

bool AskedClass::isReady() {
    if (!ready_) ready_ = !class_->isExpired() || class_->getPerfstats().collectionCount != collectionsBefore_;
    return ready_;
}

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

// The classes that hear of this request.
ClassPins GenericAgent::requestInfoClasses() {
    ClassPins classes;
    SubnodeDirectory* directory = subnodeDirectory();
    if (!meta_->subnodeType()) {
        if (meta_->query()) classes.emplace_back(meta_->query());
    } else if (directory && IsHistoryRequest() != 0) {
        classes = directory->getAllSubnodeQueryClasses(meta_);
    } else if (directory) {
        ResetGetSubnode();
        for (const char* name = GetSubnode(); name && *name; name = GetSubnode()) {
            if (ClassPin its = directory->getSubnodeQueryClass(name, meta_)) classes.push_back(std::move(its));
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
    informed_ = requestInfoClasses();
    for (const ClassPin& its : informed_) {
        trace_detail("Setting requestInfo with requestStartedID and reqInfoList for %s\n", its->getAttributeGroup());
        its->setRequestInfo(requestId_, requestInfo_);
    }
}

void GenericAgent::TakeSampleDestructor() {
    TRACE_FUNCTION();
    if (!requestInfo_) return;
    trace_detail("Clearing filter info");
    for (const ClassPin& its : informed_) {
        trace_detail("Removing requestInfo with requestStartedID and reqInfoList for %s\n", its->getAttributeGroup());
        its->removeRequestInfo(requestId_);
    }
    if (informed_.empty()) trace_detail("Deleted requestInfo - No query classes notified.");
    informed_.clear();
    delete requestInfo_;
    requestInfo_ = nullptr;
}

int GenericAgent::TakeSample() {
    TRACE_FUNCTION();
    const timespec start = Clock::monotonic();
    if (!meta_) return 0;
    AskedClasses classes = tsGetQueryList();
    tsCollectData(classes);
    tsSubmitData(classes, start);
    return 0;
}

GenericAgent::AskedClasses GenericAgent::historicalQueryList() {
    TRACE_FUNCTION();
    trace_detail("Generic Agent <%p> TakeSample subnode history request for all subnodes", static_cast<void*>(this));
    AskedClasses classes;
    SubnodeDirectory* directory = subnodeDirectory();
    ClassPins all = directory ? directory->getAllSubnodeQueryClasses(meta_) : ClassPins();
    if (all.empty()) trace_error("Historical req recv with SubnodeQueries = NULL. \n");
    for (ClassPin& clone : all) {
        const std::string node = clone->getManagedSystemName();
        classes.emplace_back(std::move(clone), node.c_str());
    }
    return classes;
}

GenericAgent::AskedClasses GenericAgent::tsGetQueryList() {
    TRACE_FUNCTION();
    ResetGetSubnode();
    if (meta_->subnodeType() && IsHistoryRequest() != 0 && QueryState(HBX_STATE_ALL_SUBNODES)) return historicalQueryList();
    AskedClasses classes;
    if (!meta_->subnodeType()) {
        if (meta_->query()) classes.emplace_back(ClassPin(meta_->query()), nullptr);
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
        if (ClassPin its = directory->getSubnodeQueryClass(name, meta_)) classes.emplace_back(std::move(its), name);
    }
    return classes;
}

void GenericAgent::collectOne(const AskedClass& asked) {
    TRACE_FUNCTION();
    VXClientClass* queryClass = asked.get();
    const bool onPool = impatientCollectorTimeout > 0 && queryClass->isThreadPoolEligible() &&
                        !queryClass->isPureEventBased() && !isAggregating(queryClass);
    if (!onPool) {
        trace_detail("Calling collectDataIfNeeded on %s:%s\n", asked.shownNode(), queryClass->getAttributeGroup());
        queryClass->collectDataIfNeeded(requestId_);
        return;
    }
    // Kept: this request has set the flag itself, so a job is made only if another holder has cleared it meanwhile; as a
    // rule such a class is left to the refresh thread, and the request sends what the cache holds.
    if (queryClass->isOnQueue()) return;
    trace_detail("Submitting collectDataIfNeeded request to threadpool on %s:%s\n", asked.shownNode(),
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

void GenericAgent::tsCollectData(const AskedClasses& classes) {
    TRACE_FUNCTION();
    for (const AskedClass& asked : classes) collectOne(asked);
}

void GenericAgent::submitOne(const AskedClass& asked, bool impatient) {
    TRACE_FUNCTION();
    VXClientClass* queryClass = asked.get();
    SubnodeDirectory* directory = subnodeDirectory();
    if (meta_->isDiscoveryAttributeGroup() && directory) {
        SubnodeGuard guard;
        directory->discoveryAttributeGroupWasUpdated(queryClass);
    }
    if (impatient) {
        trace_detail("Got impatient: returning older cached data for %s:%s", asked.shownNode(), queryClass->getAttributeGroup());
    } else {
        trace_detail("Returning fresh data for %s:%s", asked.shownNode(), queryClass->getAttributeGroup());
    }
    queryClass->sendDataToHBX(this, asked.shownNode());
    if (IsHistoryRequest() != 0) static_cast<ResultsManager*>(queryClass)->setLastRequestWasHistorical();
    if (asked.node() && directory && queryClass->getPerfErrorCode() == SUBNODE_UNAVAILABLE) {
        directory->updateDiscoveryAttributeGroupForSubnode(asked.node());
    }
}

void GenericAgent::tsSubmitData(AskedClasses& classes, const timespec& start) {
    TRACE_FUNCTION();
    while (!classes.empty()) {
        const unsigned long seen = VXClientClass::collectionsEnded();
        bool impatient = false;
        if (impatientCollectorTimeout > 0) {
            const int elapsed = static_cast<int>(Clock::wholeSecondsBetween(start, Clock::monotonic()));
            trace_detail("elapsed time <%d>, time remaining until timeout <%d>", elapsed, impatientCollectorTimeout - elapsed);
            impatient = impatientCollectorTimeout <= elapsed;
        }
        AskedClasses waiting;
        for (AskedClass& asked : classes) {
            const bool onItsWay = !asked.isReady() && !impatient && asked.get()->isThreadPoolEligible() &&
                                  !asked.get()->isPureEventBased() && !HBX_QueryShutdown();
            if (onItsWay) {
                waiting.push_back(std::move(asked));
            } else {
                submitOne(asked, impatient);
            }
        }
        classes = std::move(waiting);
        if (!classes.empty()) VXClientClass::waitForCollectionAfter(seen, kPollMilliseconds);
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
