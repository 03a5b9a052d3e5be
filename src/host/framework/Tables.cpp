// Tables, their lists of open requests, and the registry that finds them by name.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "host/base/HostTrace.h"
#include "host/framework/Framework.h"
#include "platform/zhb.h"

struct AghbxList::Impl {
    std::vector<aghbx*> requests;
};

AghbxList::AghbxList() : impl_(new Impl) {}
AghbxList::~AghbxList() = default;

aghbx* AghbxListIter::Next() {
    if (!list_ || index_ >= list_->impl_->requests.size()) return nullptr;
    return list_->impl_->requests[index_++];
}

struct TableManager::Impl {
    std::string application;
    std::string table;
    std::recursive_mutex mutex;
    AghbxList requests;
};

TableManager::TableManager(const char* applName, const char* tableName) : impl_(new Impl) {
    impl_->application = applName ? applName : "";
    impl_->table = tableName ? tableName : "";
}

TableManager::~TableManager() { almanac::host::framework().catalog.forget(this); }

void TableManager::Shutdown(unsigned reason) {
    HOST_TRACE_FUNCTION();
    host_trace_state("table %s: shutdown, reason %u", impl_->table.c_str(), reason);
}

void TableManager::lock() { impl_->mutex.lock(); }
void TableManager::unlock() { impl_->mutex.unlock(); }
AghbxList* TableManager::Requests() { return &impl_->requests; }
const char* TableManager::Owner() const { return impl_->application.c_str(); }
const char* TableManager::ApplicationName() const { return impl_->application.c_str(); }
const char* TableManager::TableName() const { return impl_->table.c_str(); }

void TableManager::attach(aghbx* request) {
    const std::lock_guard guard(impl_->mutex);
    impl_->requests.impl_->requests.push_back(request);
}

void TableManager::detach(aghbx* request) {
    const std::lock_guard guard(impl_->mutex);
    auto& list = impl_->requests.impl_->requests;
    list.erase(std::remove(list.begin(), list.end(), request), list.end());
}

RemoteManager* RemoteManager::GetManager() {
    static RemoteManager* const manager = new RemoteManager;
    return almanac::host::framework().lifecycle.ended() ? nullptr : manager;
}

int RemoteManager::RegisterClass(TableManager* table) {
    if (!table) return 1;
    almanac::host::framework().tableRegistered(table);
    return 0;
}

// Tables live until the agent ends and the registry for ever, so that a reference need not be counted.
TableManager* RemoteManager::FindTableManager(const char* applName, const char* tableName) {
    if (!applName || !tableName) return nullptr;
    return almanac::host::framework().catalog.findManager(applName, tableName);
}

unsigned RemoteManager::Handle() { return 1; }
void RemoteManager::Drop() {}
