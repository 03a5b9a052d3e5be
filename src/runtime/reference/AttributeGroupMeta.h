// AttributeMeta and AttributeGroupMeta: the parsed `metadata` section. They link a query class, which speaks of
// metrics, with the framework, which wants rows of bytes: the row layout is computed here, once, at load.
// Written on the main thread while the file is read and by the loader; read without locks afterwards.
#pragma once

#include "foundation/HashMap.h"
#include "foundation/List.h"
#include "foundation/ZbtString.h"

class EventSink;
class VXClientClass;

class AttributeMeta {
  public:
    AttributeMeta(const char* name, const char* hint, int type, int length, int offset = -1);
    virtual ~AttributeMeta();
    AttributeMeta(const AttributeMeta&) = delete;
    AttributeMeta& operator=(const AttributeMeta&) = delete;

    const char* name() const { return name_; }
    const char* hint() const { return hint_; }  // null if there is none
    int type() const { return type_; }          // 0, 3, 4, 5: integer; 1, 2: text; 6: either integer; 7, 8, 9: 64-bit
    int length() const { return length_; }      // bytes
    int offset() const { return offset_; }      // bytes from the start of the row; -1: no place in the row
    void setOffset(int offset) { offset_ = offset; }

    bool isText() const { return type_ == 1 || type_ == 2; }

  private:
    char* name_;
    char* hint_;
    int type_;
    int length_;
    int offset_;
};

class AttributeGroupMeta {
  public:
    AttributeGroupMeta(const char* applName, const char* tableName);
    virtual ~AttributeGroupMeta();  // deletes the attributes
    AttributeGroupMeta(const AttributeGroupMeta&) = delete;
    AttributeGroupMeta& operator=(const AttributeGroupMeta&) = delete;

    const char* applName() const { return applName_; }
    const char* tableName() const { return tableName_; }
    int rowSize() const { return rowSize_; }
    void setRowSize(int bytes) { rowSize_ = bytes; }
    int noOfColumns() const { return columnCount_; }  // attributes with a place in the row
    int noOfAttributes() const { return attributeCount_; }
    AttributeMeta* attrInfo(int i) const { return attributes_[i]; }  // file order; no bounds test
    AttributeMeta* columnAt(int i) const { return columns_[i]; }     // those with a place; no bounds test

    // By name, the first of several; null with a trace line if there is none.
    AttributeMeta* findColumn(const char* name) const;
    AttributeMeta* findAttribute(const char* name) const;
    // Offset, length and type of a column. False, outputs untouched and a trace line, for an unknown name.
    bool columnInfo(const char* name, int* offset, int* length, int* type) const;
    // Takes over the attributes of the list, in its order.
    void updateColumns(List& attributes);

    VXClientClass* query() const { return query_; }
    // Pairs the group with its query class and passes the pure-event flag on (sets it, never clears it). Defined in
    // collection/.
    void setQuery(VXClientClass* query);
    EventSink* getManager() const { return manager_; }
    void setTableManager(EventSink* manager) { manager_ = manager; }
    const char* subnodeType() const { return subnodeType_; }
    void setSubnodeType(char* type);  // takes over a malloc'd text
    bool isDiscoveryAttributeGroup() const { return discovery_; }
    void setIsDiscoveryAttributeGroup(bool on) { discovery_ = on; }
    bool pureEventBased() const { return pure_; }
    void setPureEventBased(bool on) { pure_ = on; }
    HashMap* getRequestInfoMap() const { return requestInfo_; }
    void setRequestInfo(const char* name);

  private:
    AttributeMeta* lookUp(const HashMap& index, const char* name) const;
    void dump() const;

    EventSink* manager_ = nullptr;
    char* applName_;
    char* tableName_;
    int rowSize_ = 0;
    int columnCount_ = 0;
    int attributeCount_ = 0;
    AttributeMeta** attributes_ = nullptr;
    AttributeMeta** columns_ = nullptr;
    VXClientClass* query_ = nullptr;
    bool pure_ = false;
    bool discovery_ = false;
    char* subnodeType_ = nullptr;
    HashMap* requestInfo_ = nullptr;
    HashMap attributesByName_;
    HashMap columnsByName_;
};

// Lays one attribute out: aligns the running offset by type and length, stores it and moves it on. Returns false with
// a trace line if the type (`typeText` as it stands in the file) or the length is not one the framework knows; the
// attribute still gets a place, unless its length is negative or would make a row of over 16 MiB.
bool placeAttribute(AttributeMeta* attribute, const char* typeText, int* runningOffset);

// Attribute group name (strdup'ed key) to AttributeGroupMeta*.
extern HashMap& metaMap;
AttributeGroupMeta* findAttributeGroupMeta(const char* name);
// Deletes all metadata and empties metaMap. Nobody may use an AttributeGroupMeta any more.
void deleteAllMetadata();
