#include <new>

#include "foundation/Trace.h"
#include "runtime/binding/GenericAgent.h"
#include "runtime/reference/AttributeGroupMeta.h"

GenericAgentManager::GenericAgentManager(const char* applName, const char* tableName, AttributeGroupMeta* meta)
    : TableManager(applName, tableName), meta_(meta) {}

aghbx* GenericAgentManager::CreateAghbx(RequestDetail* detail, ContextInfo* context) {
    TRACE_FUNCTION();
    return new GenericAgent(detail, context, this);
}

int GenericAgentManager::EventArrived(char* row, int size) {
    TRACE_FUNCTION();
    if (!meta_) {
        trace_error("Error: _coInfo was NULL.\n");
        return 1;
    }
    RemoteManager* manager = RemoteManager::GetManager();
    if (!manager) {
        trace_error("Error: RemoteManager pointer was NULL.\n");
        return 1;
    }
    int status = 0;
    TableManager* found = manager->FindTableManager(ApplicationName(), TableName());
    if (auto* table = dynamic_cast<GenericAgentManager*>(found)) status = table->AddDataToEvent(row, size);
    manager->Drop();
    return status;
}

int GenericAgentManager::AddDataToEvent(char* row, int size) {
    TRACE_FUNCTION();
    int last = 0;
    lock();
    AghbxListIter requests(Requests());
    while (aghbx* open = requests.Next()) {
        auto* request = static_cast<GenericAgentBase*>(open);  // this table makes no others
        request->UseHandle(request->Handle());
        const int status = request->AddData(row, size);
        if (status != 0) last = status;
        request->Dispatch();
        request->ClearCount();
        request->Drop();
    }
    unlock();
    return last;
}

GenericAgentManager* newGenericAgent(const char* applName, const char* tableName, AttributeGroupMeta* meta) {
    TRACE_FUNCTION();
    if (!applName || !tableName || !*tableName) {  // without an `appl` the application has an empty name
        trace_error("Missing applName or table name");
        return nullptr;
    }
    auto* manager = new (std::nothrow) GenericAgentManager(applName, tableName, meta);
    if (!manager) {
        trace_error("Error: allocating GenericAgentManager\n");
        return nullptr;
    }
    const int status = RemoteManager::RegisterClass(manager);
    trace_detail("RemoteManager::RegisterClass returned status=%d", status);
    if (meta) meta->setTableManager(manager);
    return manager;
}
