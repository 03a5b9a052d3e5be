#include "providers/derived/source/SourceClass.h"

#include <cstring>

#include "collection/SubnodeDirectory.h"
#include "runtime/reference/AttributeGroupMeta.h"

SourceClass::SourceClass(ClassPin clone, const VXClientClass* reader)
    : source_(static_cast<ResultsManager*>(clone.get())) {
    if (clone.get() != reader) pin_ = std::move(clone);
}

ClassPin cloneInSubnodeOf(const VXClientClass* reader, const AttributeGroupMeta* meta) {
    SubnodeDirectory* directory = subnodeDirectory();
    const std::string& msn = reader->getManagedSystemName();
    return directory && meta && !msn.empty() ? directory->getSubnodeQueryClass(msn.c_str(), meta) : ClassPin();
}

SourceClass sourceInSubnode(VXClientClass* declared, const char* key, const VXClientClass* reader) {
    SubnodeDirectory* directory = subnodeDirectory();
    const AttributeGroupMeta* meta = declared->getAttributeGroupMeta();
    if (directory && meta) {
        SourceClass clone(cloneInSubnodeOf(reader, meta), reader);
        if (!clone) clone = SourceClass(directory->getSubnodeQueryClassByKey(key, meta), reader);
        if (clone) return clone;
    }
    const bool belongsToSubnodes = meta && meta->subnodeType();
    return belongsToSubnodes && !declared->getSubnodeKey() ? SourceClass() : SourceClass(declared);
}

const ResultMetric* findCell(const ResultInstance* row, const char* attributeName) {
    if (!attributeName) return nullptr;
    const auto matches = [attributeName](const ResultMetric* cell) {
        const char* name = cell->getQMPVMetricName();
        return name == attributeName || (name && std::strcmp(name, attributeName) == 0);
    };
    for (const ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) {
        if (matches(cell)) return cell;
    }
    for (ListIterator derived = row->getDerivedIterator(); derived.hasNext();) {
        const auto* cell = static_cast<const ResultMetric*>(derived.next());
        if (matches(cell)) return cell;
    }
    return nullptr;
}
