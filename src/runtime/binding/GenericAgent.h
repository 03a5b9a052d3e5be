// The binding to the framework: GenericAgentManager is one table, GenericAgent one request on it. A request becomes a
// collection through the query classes, and its rows go back through AddData, which applies the request's filter.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "collection/RowSink.h"
#include "collection/VXClientClass.h"
#include "foundation/List.h"
#include "foundation/ZbtString.h"
#include "platform/zhb.h"
#include "runtime/binding/RequestInfo.h"
#include "runtime/reference/EventSink.h"

class AttributeGroupMeta;
class GenericAgentManager;

class GenericAgentBase : public aghbx, public RowSink {
  public:
    GenericAgentBase(RequestDetail* detail, ContextInfo* context, GenericAgentManager* table);

    int PrintSelf() override;
    int NumColumns() override;
    // Enumerates the columns that have a place in the row. Out of range: HBX_BAD_COLUMN.
    int GetColumnInfo(ColumnInfo* info, int column) override;
    // The framework asks for each comparison of its filter. Kept: a 64-bit column is compared clamped to 32 bits.
    int ColumnIsException(char* row, char* column, _IntfOper oper, char* value) override;
    AttributeGroupMeta* attributeGroupMeta() override;

    GenericAgentManager* tableManager() const { return table_; }

  private:
    GenericAgentManager* table_;
};

// One class that a request asks, marked as on the queue and pinned for as long as this lives, and where the request
// stands with it.
class AskedClass {
  public:
    // `node` is the managed system asked for; null for the agent's own.
    AskedClass(ClassPin queryClass, const char* node);
    ~AskedClass();
    AskedClass(AskedClass&&) = default;
    AskedClass& operator=(AskedClass&&) = delete;

    VXClientClass* get() const { return class_.get(); }
    const char* node() const { return hasNode_ ? node_.c_str() : nullptr; }
    const char* shownNode() const;
    // Whether there was fresh data at some moment of the request.
    bool isReady();

  private:
    ClassPin class_;
    std::string node_;
    bool hasNode_;
    int collectionsBefore_;  // collections that had ended when the request began
    bool ready_;
};

class GenericAgent : public GenericAgentBase {
  public:
    GenericAgent(RequestDetail* detail, ContextInfo* context, GenericAgentManager* table);
    ~GenericAgent() override;

    int TakeSample() override;
    // One row for this request: 2 if its filter left it out, else the status of InsertRow. A demand request's filter is
    // not applied here, the framework does that.
    int AddData(char* row, int size) override;
    const char* requestIdentity() const { return requestId_; }

  private:
    void TakeSampleConstructor();
    void ParseRequestInformation();
    void TakeSampleDestructor();
    void collectRequestInfo();
    ClassPins requestInfoClasses();
    using AskedClasses = std::deque<AskedClass>;
    AskedClasses tsGetQueryList();
    AskedClasses historicalQueryList();
    void tsCollectData(const AskedClasses& classes);
    void tsSubmitData(AskedClasses& classes, const timespec& start);
    void collectOne(const AskedClass& asked);
    void submitOne(const AskedClass& asked, bool impatient);
    bool IsRowException(char* row) { return CheckForException(row) != 0; }
    void printRow(const char* row) const;

    ZBT::String applName_;
    ZBT::String tableName_;
    AttributeGroupMeta* meta_;
    char requestId_[32];
    RequestInfoList* requestInfo_ = nullptr;
    ClassPins informed_;  // the classes that were told of it
};

class GenericAgentManager : public TableManager, public EventSink {
  public:
    GenericAgentManager(const char* applName, const char* tableName, AttributeGroupMeta* meta);
    aghbx* CreateAghbx(RequestDetail* detail, ContextInfo* context) override;
    int EventArrived(char* row, int size) override;
    AttributeGroupMeta* attributeGroupMeta() const { return meta_; }

  private:
    int AddDataToEvent(char* row, int size);
    AttributeGroupMeta* meta_;
};

// Makes and registers a table. Null for a missing name. The caller owns it: it lives until the agent ends.
GenericAgentManager* newGenericAgent(const char* applName, const char* tableName, AttributeGroupMeta* meta);
