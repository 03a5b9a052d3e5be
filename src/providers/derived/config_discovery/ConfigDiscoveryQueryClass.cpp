#include "providers/derived/config_discovery/ConfigDiscoveryQueryClass.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "config/ConfigMap.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "runtime/reference/Application.h"

namespace {

constexpr int kAgentVersion = 3;  // its place in agentInfo

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

ConfigDiscoveryQueryClass::ConfigDiscoveryQueryClass(const char* app, const char* ag, const char* subnodeType,
                                                     const char* subnodeAffinity)
    : ResultsManager(app, ag, VX_CONFIG_DISCOVERY),
      subnodeType_(orEmpty(subnodeType)),
      subnodeAffinity_(orEmpty(subnodeAffinity)),
      attributeGroupName_(orEmpty(ag)) {
    TRACE_FUNCTION();
    const char* productCode = ZSV1_GetEnv(ConfigMap::productCodeVariable);
    if (!productCode) {
        trace_error("ZBT_PRODUCT_CODE not set in environment-- unable to collect subnode discovery data from config");
        return;
    }
    productCode_ = productCode;
    trace_detail("Discovery group %s collecting subnodes with type %s, pc %s", attributeGroupName_.c_str(),
                 subnodeType_.c_str(), productCode_.c_str());
}

ConfigDiscoveryQueryClass::~ConfigDiscoveryQueryClass() {
    TRACE_FUNCTION();
    freeKeys();
}

void ConfigDiscoveryQueryClass::freeKeys() {
    for (int i = 0; i < subnodeCount_; ++i) std::free(subnodeKeys_[i]);
    std::free(subnodeKeys_);
    subnodeKeys_ = nullptr;
    subnodeCount_ = 0;
}

void ConfigDiscoveryQueryClass::printResults() {
    traceResults(ZTR1_STATE, "Instances and Values for ConfigDiscovery class");
}

void ConfigDiscoveryQueryClass::refreshSnodesFromConfig() {
    TRACE_FUNCTION();
    freeKeys();
    subnodeKeys_ = getSubnodeKeys(subnodeType_.c_str(), &subnodeCount_);
}

const char* ConfigDiscoveryQueryClass::valueOf(const char* attribute, const char* key) const {
    const auto is = [attribute](const char* name) { return attribute && std::strcmp(attribute, name) == 0; };
    if (is(SUBNODE_AFFINITY_QMPV_NAME)) return subnodeAffinity_.c_str();
    if (is(SUBNODE_TYPE_QMPV_NAME)) return subnodeType_.c_str();
    if (is(SUBNODE_VERSION_QMPV_NAME)) return orEmpty(agentInfo[kAgentVersion]);
    // The managed system name takes the key's place once the subnode is known.
    if (is(SUBNODE_KEY_QMPV_NAME) || is(SUBNODE_RESOURCE_NAME_QMPV_NAME) || is(SUBNODE_MSN_QMPV_NAME)) return key;
    return "";
}

void ConfigDiscoveryQueryClass::addRow(const char* key) {
    TRACE_MESSAGES();
    auto row = std::make_unique<ResultInstance>("", getMetricCount());
    for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* metric = static_cast<const Metric*>(c.getCurrentElement());
        if (metric->getRawMetricType() != STRING_DATA) {
            trace_detail("Ignoring non-STRING_DATA metric %s found in Config Discovery class",
                        orEmpty(metric->getQMPVMetricName()));
            continue;
        }
        auto* text = new UTF8String;
        text->initFromUTF8String(valueOf(metric->getQMPVMetricName(), key));
        row->addMetric(new ResultMetric(metric, text));
    }
    // Kept: one metric that is no text costs the group all its rows.
    if (row->getActualMetricCount() != row->getExpectedMetricCount()) {
        trace_error("Missing metrics. Skipping row. expected %d tokens, parsed %d.", row->getExpectedMetricCount(),
                    row->getActualMetricCount());
        return;
    }
    addResultInstance(row.release());
}

void ConfigDiscoveryQueryClass::internalCollectData(const char* /*requestId*/) {
    TRACE_FUNCTION();
    refreshSnodesFromConfig();
    // Kept: the code stays when there are sections again.
    if (subnodeCount_ <= 0) errorCode_ = NO_INSTANCES_RETURNED;
    for (int i = 0; i < subnodeCount_; ++i) addRow(subnodeKeys_[i]);
}
