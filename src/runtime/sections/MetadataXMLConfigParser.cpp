#include "runtime/sections/MetadataXMLConfigParser.h"

#include <cstring>

#include "collection/status/StatusTables.h"
#include "foundation/Trace.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr int kOriginLength = 32;  // bytes of the first column of every table
constexpr const char* kStatusProduct = "ZAG";
constexpr const char* kSubnodeStatusSuffix = "_Performance_Object_Status";

// Process-lifetime objects that register themselves before main.
MetadataXMLConfigParser& metadataParser = *new MetadataXMLConfigParser;
PerfObjectEnumXMLConfigParser& perfObjectEnumParser = *new PerfObjectEnumXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

MetadataXMLConfigParser::MetadataXMLConfigParser() { registerXMLConfigParser("metadata", this); }

void MetadataXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    if (is(name, "ag")) {
        startGroup(attributes);
    } else if (is(name, "attr")) {
        addAttribute(attributes);
    } else if (is(name, "receive_req") && group_) {
        group_->setRequestInfo(getText(attributes, "name"));
    }
}

void MetadataXMLConfigParser::endElement(const char* name) {
    if (is(name, "ag")) endGroup();
}

void MetadataXMLConfigParser::startGroup(const HashMap* attributes) {
    TRACE_FUNCTION();
    endGroup();  // an `ag` inside an `ag`: the outer one ends here
    const char* table = getText(attributes, "table");
    const char* name = getText(attributes, "name");
    if (!name) {
        trace_error("An attribute group without a name is left out (table %s)", table ? table : "none");
        return;
    }
    offset_ = kOriginLength;
    group_ = new AttributeGroupMeta(applicationName.c_str(), table);
    group_->setPureEventBased(getBoolean(attributes, "pure"));
    group_->setIsDiscoveryAttributeGroup(getBoolean(attributes, "discovery_attribute_group"));
    if (const char* subnodeType = getText(attributes, "subnode_type")) group_->setSubnodeType(strdup(subnodeType));
    trace_detail("AttributeGroup %s pure=%s", group_->tableName(), group_->pureEventBased() ? "true" : "false");
    groupName_ = name;
    attributes_.add(new AttributeMeta("ORIGINNODE", nullptr, 1, kOriginLength, 0));
    if (metaMap.contains(name)) {
        trace_error("Attribute group %s is declared twice; the later declaration counts", name);
        const char* oldKey = nullptr;
        auto* replaced = static_cast<AttributeGroupMeta*>(metaMap.remove(name, &oldKey));
        // A status table's class was joined to it at once and would keep a dead pointer.
        if (replaced->query()) replaced->query()->setAttributeGroupMeta(nullptr);
        delete replaced;
        std::free(const_cast<char*>(oldKey));
    }
    metaMap.put(strdup(name), group_);
}

void MetadataXMLConfigParser::addAttribute(const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* name = getText(attributes, "name");
    if (!group_ || !name) {
        trace_error("An attr element without a name, or outside an ag, is left out");
        return;
    }
    const bool hidden = *name == '-';
    if (hidden) ++name;
    const char* hint = getText(attributes, "hint");
    if (hint) trace_detail("Read in a display hint: %s", hint);
    auto* attribute = new AttributeMeta(name, hint, getInteger(attributes, "type"), getInteger(attributes, "size"));
    if (!hidden) placeAttribute(attribute, getText(attributes, "type"), &offset_);
    attributes_.add(attribute);
}

void MetadataXMLConfigParser::endGroup() {
    TRACE_FUNCTION();
    if (!group_) return;
    group_->setRowSize(offset_);
    group_->updateColumns(attributes_);
    // Each subnode type's status table gets its query class here; the agent's own one is made at start.
    if (std::strstr(groupName_.c_str(), kSubnodeStatusSuffix)) {
        auto* status = new PerfObjectStatus(kStatusProduct, groupName_.c_str(), nullptr, group_);
        group_->setQuery(status);
        status->setAttributeGroupMeta(group_);
        queryClassList->addClientClass(status);
    }
    attributes_.clear();
    group_ = nullptr;
}

PerfObjectEnumXMLConfigParser::PerfObjectEnumXMLConfigParser() { registerXMLConfigParser("perf_object_enum_list", this); }

void PerfObjectEnumXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    if (!is(name, "perf_object_enum")) return;
    VXClientClass::addPerfObjEnum(getText(attributes, "enumeration"), getText(attributes, "error_code"));
}

void PerfObjectEnumXMLConfigParser::endElement(const char*) {}

void PerfObjectEnumXMLConfigParser::fatalError(const char* message) {
    TRACE_FUNCTION();
    trace_error("Fatal XML error: %s\n", message);
}
