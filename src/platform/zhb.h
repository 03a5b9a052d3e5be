// The framework the agent runs in: the main loop, tables, requests with their filters, subnodes, actions.
// The agent derives one class from TableManager for its tables and one from aghbx for its requests.
//
// Threads: requests run on the framework's own threads, several at once; events arrive on whatever thread the
// agent delivers them. No framework lock is held while the framework calls the agent.
#pragma once

#include <cstddef>
#include <memory>

// ---- Process ------------------------------------------------------------------------------------------------

// Runs the agent until shutdown: calls the agent loader once, then serves requests. Returns 0 after an orderly
// end (requests drained, AgTerminate called once, on this thread), or an exit code if the host could not start
// (78 for a fault of the installation: data directory, socket or port); one line on standard error tells why.
int zhbmain(int argc, char** argv);

typedef int (*HBX_AgentLoader)();
class AghbxAutomationCapsule;
typedef int (*HBX_CommandCallback)(AghbxAutomationCapsule* capsule);

int HBX_RegisterAgentLoader(HBX_AgentLoader loader);
// `pattern` is "*": every command goes to the callback.
int HBX_RegisterCommandCallback(const char* pattern, HBX_CommandCallback callback);

// How the text of a declared command tells its name: as its first word, in any case; as what stands in front of a blank, a
// '[' or the end; or as the whole text, in any case.
enum HBX_CommandForm { HBX_COMMAND_WORD = 0, HBX_COMMAND_BRACKETS = 1, HBX_COMMAND_WHOLE = 2 };
struct HBX_CommandParameter {
    const char* name;
    const char* defaultValue;  // as it is used, quotes included
};
struct HBX_CommandInfo {
    const char* name;
    HBX_CommandForm form;
    const char* title;  // one line for people
    const HBX_CommandParameter* parameters;
    int parameterCount;
};
// Tells of a command that can be asked for by its name; the texts are copied. A later one of the same name changes
// nothing. 0, or 1 without a name.
int HBX_DeclareCommand(const HBX_CommandInfo* info);
// Makes the text of a declared command (form HBX_COMMAND_WORD) from a value for each of its parameters, in their order; a
// null value stands for the default. A malloc'd text; or null and a malloc'd reason in *why. Called on request threads.
typedef char* (*HBX_CommandComposer)(const char* name, const char* const* values, int count, char** why);
void HBX_RegisterCommandComposer(HBX_CommandComposer composer);
// Declares the product and gives its version back as at most size - 1 bytes and a terminator.
int HBX_SetVersionUsingProduct(const char* product, char* out, int size);
int HBX_SetNodeType(const char* nodeType);
// Repeatable: affinities and features add up.
int HBX_SetAffinity(const char* affinity);
// Starts the shutdown; idempotent, safe before zhbmain. From another thread than zhbmain's it waits until
// zhbmain has finished, 10 seconds at most.
int HBX_Shutdown(int reason);
// 1 once a shutdown has been asked for.
int HBX_QueryShutdown();
// Requests that are inside the agent at this moment. AgTerminate deletes nothing while there are any.
int HBX_RequestsRunning();
// The agent's managed system name; the text stays valid for the life of the process.
const char* HBX_GetOriginnode();

// What the framework calls by name at the end of zhbmain; absent in programs without an agent.
extern "C" __attribute__((weak)) void AgTerminate();

// ---- Subnodes -------------------------------------------------------------------------------------------------

enum { HBX_OK = 0, HBX_SUBNODE_FAILED = 7 };

// Registers a managed system. HBX_SUBNODE_FAILED if the name is null, empty, longer than 32 bytes or known. While nothing
// can be delivered the registration stands and waits.
int HBX_Subnode_Register_nAff(const char* msn, const char* appl, const char* version, int count,
                              const char* affinity, const char* affinityVersion, const char* feature1,
                              const char* feature2, const char* feature3);
int HBX_Subnode_RegisterEx(const char* msn, const char* appl, const char* version, const char* affinity,
                           int affinityVersion, int count, const char* const* features);
// HBX_SUBNODE_FAILED if the name is not registered.
int HBX_Subnode_Deregister(const char* msn);
// Flushes pending registrations; HBX_SUBNODE_FAILED while they cannot be delivered.
int HBX_Subnode_SendRequest();

// ---- Columns and filters ----------------------------------------------------------------------------------------

enum : int { HBX_BAD_COLUMN = 0x21060007 };

// Framework types of a column.
enum HBX_ColumnType { HBX_INT32 = 3, HBX_INT16 = 5, HBX_UTF8 = 9, HBX_TEXT = 12, HBX_INT64 = 13 };

// One column of a table, filled by the agent. The texts live as long as the table.
struct ColumnInfo {
    const char* name = nullptr;
    const char* hint = nullptr;  // display hint (RFC 2579), null if there is none
    int offset = 0;              // bytes from the start of the row
    int length = 0;              // bytes
    int type = 0;                // HBX_ColumnType
};

// Operators of a comparison (EQ to LT) and connectives (OR, AND, NOT).
enum _IntfOper {
    INTF_NONE = 0, INTF_EQ, INTF_NE, INTF_GE, INTF_LE, INTF_LT, INTF_GT, INTF_OR, INTF_AND, INTF_NOT
};

enum HBX_FilterFunction { HBX_FN_NONE = 0, HBX_FN_PARMA = 1, HBX_FN_SCAN = 6, HBX_FN_SUBSTR = 7 };
enum HBX_FilterDataType { HBX_DATA_INT64 = 492, HBX_DATA_INT32 = 496, HBX_DATA_TEXT = 452 };

// One element of a request's filter. `oper` compares the column with the value; `oper2` connects the element
// with the one behind it (INTF_NONE on the last).
struct ZFL1_FILTERINFO {
    int function = HBX_FN_NONE;
    int oper = INTF_NONE;
    int oper2 = INTF_NONE;
    const char* column = nullptr;
    int size = 0;           // 300 on a "PARMA" element that may carry a name
    bool hasName = false;   // `name` replaces "PARMA"
    const char* name = nullptr;
    int dataType = HBX_DATA_TEXT;
    int valueLength = 0;          // bytes of the value
    const void* value = nullptr;  // int for HBX_DATA_INT32, long long for HBX_DATA_INT64, else bytes, unterminated
};

// ---- Tables and requests --------------------------------------------------------------------------------------

class RequestDetail;  // the framework's; the agent only hands them on
class ContextInfo;
class aghbx;
class TableManager;

// The open requests of one table.
class AghbxList {
  public:
    AghbxList();
    ~AghbxList();
    AghbxList(const AghbxList&) = delete;
    AghbxList& operator=(const AghbxList&) = delete;

  private:
    friend class AghbxListIter;
    friend class TableManager;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Walks a list; the table must stay locked meanwhile.
class AghbxListIter {
  public:
    explicit AghbxListIter(AghbxList* list) : list_(list) {}
    aghbx* Next();  // null at the end

  private:
    AghbxList* list_;
    std::size_t index_ = 0;
};

// One table. It is registered with RemoteManager::RegisterClass and lives until the agent ends.
class TableManager {
  public:
    TableManager(const char* applName, const char* tableName);
    virtual ~TableManager();
    TableManager(const TableManager&) = delete;
    TableManager& operator=(const TableManager&) = delete;

    virtual void Shutdown(unsigned reason);
    // The factory of requests; the framework owns what it returns.
    virtual aghbx* CreateAghbx(RequestDetail* detail, ContextInfo* context) = 0;

    void lock();
    void unlock();
    AghbxList* Requests();
    const char* Owner() const;  // the application's name
    const char* ApplicationName() const;
    const char* TableName() const;

    // For the framework: opens and closes a request on this table's list.
    void attach(aghbx* request);
    void detach(aghbx* request);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The registry of tables. GetManager and FindTableManager take a reference that Drop gives back.
class RemoteManager {
  public:
    static RemoteManager* GetManager();  // null once the host has ended
    // 0, or 1 for a null table.
    static int RegisterClass(TableManager* table);
    TableManager* FindTableManager(const char* applName, const char* tableName);
    unsigned Handle();
    void Drop();
};

enum HBX_SampleType { HBX_EXCEPTION = 1, HBX_INTERVAL = 2, HBX_DEMAND = 3, HBX_EVENT = 4 };
enum HBX_QueryState { HBX_STATE_ALL_SUBNODES = 512 };

// The base of a request. The framework makes it through TableManager::CreateAghbx, calls TakeSample once or, at
// an interval, again and again, and deletes it.
class aghbx {
  public:
    aghbx(RequestDetail* detail, ContextInfo* context, TableManager* table);
    aghbx(const aghbx&) = delete;
    aghbx& operator=(const aghbx&) = delete;
    // The memory of a request rests for a while after the request's end: agents use the address as the request's
    // identity, and work that still carries an old identity must not meet a new request under it.
    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory);

    virtual int PrintSelf();
    virtual int TakeSample() = 0;
    virtual int NumColumns() = 0;
    // 0, or HBX_BAD_COLUMN.
    virtual int GetColumnInfo(ColumnInfo* info, int column) = 0;
    virtual int ExecuteCommand(char* command, int length, char* user);
    virtual ~aghbx();
    // Copies one row of the present row size into the answer. 0, or 1 if the request takes no more rows.
    // Serialised per request.
    virtual int InsertRow(char* row);
    // 1 if the row passes the filter (a request without one passes every row), else 0.
    virtual int CheckForException(char* row);
    // The framework asks the agent, comparison by comparison; the agent reads the column and answers through
    // one of the IsException forms. `value` is the framework's own and only handed back.
    virtual int ColumnIsException(char* row, char* column, _IntfOper oper, char* value) = 0;
    virtual int CommandCompleted(AghbxAutomationCapsule* capsule);

    int _get_sampletype() const;  // HBX_SampleType
    int _get_interval() const;    // seconds
    int Interval() const;
    bool QueryState(unsigned state) const;
    void SetRowSize(unsigned bytes);
    void SetAllocationDefault(unsigned rows);
    const char* TableName() const;
    const char* ApplicationName() const;
    const char* SituationName() const;
    int IsHistoryRequest() const;  // 0 no, 1 kept at the agent, 2 kept at the central server
    // Gives the next element of the filter: 0, or 1 behind the last one (`*info` is then null).
    int GetFilterInfo(ZFL1_FILTERINFO** info);
    void ResetFilterIndex();
    // The next subnode the request names: an empty text behind the last one.
    const char* GetSubnode();
    void ResetGetSubnode();
    // The managed system that a command is sent to; an empty text if the request names none.
    const char* DestinationNode() const;
    // Copies the bytes of a column of the request's own data row, `size` at most and without a terminator: their number,
    // or -1 if there is no such row or column.
    int GetDataColumn(int row, const char* column, char* out, int size) const;
    int IsException(_IntfOper oper, int number, char* value);
    int IsException(_IntfOper oper, long number, char* value);
    int IsException(_IntfOper oper, const char* text, char* value, int length);
    // Hands the rows inserted since the last call to whoever asked.
    int Dispatch();
    unsigned Handle() const;
    void UseHandle(unsigned handle);  // a reference, given back by Drop
    void ClearCount();
    void Drop();
    void DumpThresholds();
    // 0, or HBX_BAD_COLUMN if no column has that name.
    int GetColumnInfoByName(ColumnInfo* info, const char* name);
    int FinishedAutomationCommand(AghbxAutomationCapsule* capsule);

    struct State;
    State* state() { return state_.get(); }

  private:
    std::unique_ptr<State> state_;
};

// ---- Actions --------------------------------------------------------------------------------------------------

// The table of a request that carries a command for the agent, and of one that carries a command for a subnode. A
// command that a situation gives comes with the situation's own table.
#define HBX_ACTION_TABLE "CLACTRMT"
#define HBX_SUBNODE_ACTION_TABLE "SNACTRMT"

// One command on its way through the agent: what was asked and what came of it. The framework owns it; the agent
// reports with SetMessage and SetResults and ends with FinishedAutomationCommand of the request it came with.
class AghbxAutomationCapsule {
  public:
    AghbxAutomationCapsule(const char* command, const char* user, aghbx* request);
    ~AghbxAutomationCapsule();
    AghbxAutomationCapsule(const AghbxAutomationCapsule&) = delete;
    AghbxAutomationCapsule& operator=(const AghbxAutomationCapsule&) = delete;

    const char* Command() const;
    const char* User() const;  // null if nobody is named
    aghbx* Request() const;    // the request the command came with
    void SetMessage(const char* text);
    void SetResults(int returnCode);
    const char* Message() const;
    int Results() const;
    bool Finished() const;

    struct Impl;
    Impl* impl() { return impl_.get(); }

  private:
    std::unique_ptr<Impl> impl_;
};
