// What a discovery class reports against what it announced before.
#include "collection/ManagedSystemName.h"
#include "collection/ResultsGuard.h"
#include "config/subnodes/DiscoveryCells.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// Subnodes that announce subnodes that announce … End it somewhere.
constexpr int kDeepestNesting = 16;

constexpr int kFewestSecondsBetweenForced = 1;

unsigned address(const void* cell) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(cell)); }

void setText(ResultMetric* cell, const char* text) {
    auto* value = new UTF8String;
    value->initFromUTF8String(text);
    cell->setMetricValue(value);
}

bool hasFailed(ResultsManager* dag) {
    const int code = dag->getPerfErrorCode();
    return code != OBJECT_ACTIVE && code != NO_INSTANCES_RETURNED;
}

}  // namespace

bool DiscoveryCells::text(const ResultInstance* row, const char* attribute, std::string* out) {
    const ResultMetric* cell = row->getMetric(attribute);
    UTF8String* text = cell ? cell->toUTF8String() : nullptr;
    const char* value = text ? text->getUTF8Value() : nullptr;
    if (value) out->assign(value);
    if (text && !cell->isUTF8String()) delete text;
    return value != nullptr;
}

std::vector<std::string> DiscoveryCells::managedSystemNames(ResultsManager* discovery) {
    std::vector<std::string> names;
    const ResultsGuard guard(discovery);
    for (ListCursor c = discovery->getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
        std::string name;
        if (text(static_cast<ResultInstance*>(c.getCurrentElement()), SUBNODE_MSN_QMPV_NAME, &name)) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

std::vector<std::string> SubnodeManager::announcedBy(const VXClientClass* dag) const {
    char announcer[20];
    const auto announced = dagToMSNs_.find(generatePointerString(dag, announcer));
    return announced == dagToMSNs_.end() ? std::vector<std::string>() : announced->second.names.inOrder();
}

// Copies the rows out and writes each name into its row. False if they tell nothing: there are none, because the
// collection failed or has not ended.
bool SubnodeManager::readRows(VXClientClass* dag, std::vector<Row>* rows) const {
    TRACE_FUNCTION();
    auto* results = static_cast<ResultsManager*>(dag);
    const bool failedBefore = hasFailed(results);  // a collection by another thread may publish between the two questions
    bool empty = true;
    {
        const ResultsGuard guard(results);
        ListCursor c = results->getResultInstanceListCursor();
        empty = !c.hasMoreElements();
        rows->reserve(static_cast<std::size_t>(results->getResultInstanceCount()));
        for (; c.hasMoreElements(); c.setToNext()) {
            Row read;
            if (readRow(dag, static_cast<ResultInstance*>(c.getCurrentElement()), &read)) rows->push_back(std::move(read));
        }
    }
    if (!empty || !(failedBefore || hasFailed(results) || results->isCollecting())) return true;
    trace_state("The collection of %s failed or has not ended; its subnodes stay as they are", dag->getAttributeGroup());
    return false;
}

bool SubnodeManager::readRow(const VXClientClass* dag, const ResultInstance* row, Row* read) {
    TRACE_MESSAGES();
    const bool whole = DiscoveryCells::text(row, SUBNODE_KEY_QMPV_NAME, &read->key) &&
                       DiscoveryCells::text(row, SUBNODE_TYPE_QMPV_NAME, &read->type) &&
                       DiscoveryCells::text(row, SUBNODE_AFFINITY_QMPV_NAME, &read->affinity) &&
                       DiscoveryCells::text(row, SUBNODE_VERSION_QMPV_NAME, &read->version);
    if (!whole) {
        trace_error("DAG row is missing a metric, skipping: key = %08x type = %08x aff = %08x ver = %08x",
                    address(row->getMetric(SUBNODE_KEY_QMPV_NAME)), address(row->getMetric(SUBNODE_TYPE_QMPV_NAME)),
                    address(row->getMetric(SUBNODE_AFFINITY_QMPV_NAME)), address(row->getMetric(SUBNODE_VERSION_QMPV_NAME)));
        return false;
    }
    const AttributeGroupMeta* meta = dag->getAttributeGroupMeta();
    char msn[MANAGED_SYSTEM_NAME_SIZE];
    if (!::generateSubnodeManagedSystemName(meta ? meta->applName() : nullptr, read->key.c_str(), read->type.c_str(), msn)) {
        return false;
    }
    if (ResultMetric* cell = row->getMetric(SUBNODE_MSN_QMPV_NAME)) setText(cell, msn);
    read->msn = msn;
    return true;
}

void SubnodeManager::retryOrphans() {
    for (const std::string& name : announcedBy(nullptr)) removeSubnode(name.c_str());
}

// How deep the subnode stands whose clone this is; 0 for a class of the reference file.
int SubnodeManager::depthOf(const VXClientClass* dag) const {
    const auto own = msnToQueries_.find(dag->getManagedSystemName());
    return own == msnToQueries_.end() ? 0 : own->second->depth;
}

void SubnodeManager::discoveryAttributeGroupWasUpdated(VXClientClass* dag) {
    TRACE_FUNCTION();
    if (!dag || dag->isZombie()) return;  // a request may still hold a clone that has gone
    const int depth = depthOf(dag);
    if (depth >= kDeepestNesting) {
        trace_error("Subnodes of %s are nested more than %d deep, its rows are left out", dag->getAttributeGroup(),
                    kDeepestNesting);
        return;
    }
    if (depth == 0) retryOrphans();
    std::vector<Row> rows;
    if (!readRows(dag, &rows)) return;
    const std::vector<std::string> previous = announcedBy(dag);
    const std::unordered_set<std::string_view> known(previous.begin(), previous.end());
    std::unordered_set<std::string_view> seen;
    for (const Row& row : rows) {
        seen.insert(row.msn);
        if (known.count(row.msn) > 0) continue;
        if (HBX_QueryShutdown()) break;
        addSubnode(row.msn.c_str(), row.key.c_str(), row.type.c_str(), row.affinity.c_str(), row.version.c_str(), dag);
    }
    for (const std::string& name : previous) {
        if (HBX_QueryShutdown()) break;
        if (seen.count(name) == 0) removeSubnode(name.c_str());
    }
}

void SubnodeManager::updateDiscoveryAttributeGroupForSubnode(const char* msn) {
    TRACE_FUNCTION();
    if (!msn) return;
    const SubnodeGuard locked(this);
    const auto found = msnToQueries_.find(msn);
    if (found == msnToQueries_.end() || !found->second->dag) return;
    VXClientClass* dag = found->second->dag;
    char id[20];
    Announced& announced = dagToMSNs_[generatePointerString(dag, id)];
    const timespec now = Clock::monotonic();
    if (announced.everForced && Clock::wholeSecondsBetween(announced.forced, now) < kFewestSecondsBetweenForced) return;
    announced.everForced = true;
    announced.forced = now;
    if (static_cast<ResultsManager*>(dag)->collectAnew(id)) discoveryAttributeGroupWasUpdated(dag);
}
