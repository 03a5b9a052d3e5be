// What the derived tables (join, rollup, filter) share: how they refer to the classes that they read, and how they hold
// the rows of those while they read them.
#pragma once

#include "collection/ResultsGuard.h"
#include "collection/ResultsManager.h"

// A class that another one reads; may be empty. A subnode's clone is pinned for as long as it is kept here. A class of
// the reference file is not: it lives to the agent's end, and may then go ahead of its readers. A reader that is its own
// source does not pin itself.
class SourceClass {
  public:
    SourceClass() = default;
    explicit SourceClass(VXClientClass* declared) : source_(static_cast<ResultsManager*>(declared)) {}
    SourceClass(ClassPin clone, const VXClientClass* reader);

    ResultsManager* get() const { return source_; }
    ResultsManager* operator->() const { return source_; }
    explicit operator bool() const { return source_ != nullptr; }

  private:
    ResultsManager* source_ = nullptr;
    ClassPin pin_;
};

// The clone of a group's class in the very subnode that the reader belongs to. By the name under which that is registered:
// one made from the key and the group's type may differ from it in the case of the type.
ClassPin cloneInSubnodeOf(const VXClientClass* reader, const AttributeGroupMeta* meta);

// What a class of the reference file stands for to a reader in the subnode with this key: its clone there or, where it
// has none, the class itself. Empty if the class belongs to subnodes and has no clone in this one: it is being removed.
// Takes no lock but the directory's own.
SourceClass sourceInSubnode(VXClientClass* declared, const char* key, const VXClientClass* reader);

// The first cell of an attribute in a chain walk, own cells ahead of derived ones (getMetric gives the last); null if
// there is none.
const ResultMetric* findCell(const ResultInstance* row, const char* attributeName);
