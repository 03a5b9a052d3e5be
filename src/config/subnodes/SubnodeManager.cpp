// The manager itself, names, and the lookups.
#include "config/subnodes/SubnodeManager.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "collection/ManagedSystemName.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// In static storage without a destructor: threads may outlive main.
ZSV1_Lock subnodeLock;
ZSV1_Once subnodeLockOnce;

ZSV1_Lock* lock() {
    ZSV1_InitializeOnce(
        &subnodeLockOnce, [](void*) { ZSV1_InitializeLock(&subnodeLock); }, nullptr);
    return &subnodeLock;
}

std::mutex& instanceMutex = *new std::mutex;
SubnodeManager* instance = nullptr;

const char* groupOf(const AttributeGroupMeta* meta) {
    return meta && meta->query() ? meta->query()->getAttributeGroup() : nullptr;
}

}  // namespace

SubnodeManager* getSubnodeManager() {
    const std::lock_guard guard(instanceMutex);
    if (!instance) {
        instance = new SubnodeManager;
        registerSubnodeDirectory(instance);
    }
    return instance;
}

bool stopSubnodeManager(long milliseconds) {
    SubnodeManager* present = nullptr;
    {
        const std::lock_guard guard(instanceMutex);
        present = instance;
    }
    return !present || present->stopZombieKiller(milliseconds);
}

void deleteSubnodeManager() {
    SubnodeManager* present = nullptr;
    {
        const std::lock_guard guard(instanceMutex);
        present = std::exchange(instance, nullptr);
    }
    delete present;
}

SubnodeManager::SubnodeManager(ZombieThread thread) {
    TRACE_FUNCTION();
    if (thread == ZombieThread::Start) startZombieKiller();
}

SubnodeManager::~SubnodeManager() {
    TRACE_FUNCTION();
    while (!stopZombieKiller(1000)) trace_error("The garbage collection of subnodes has not ended yet");
    if (subnodeDirectory() == this) registerSubnodeDirectory(nullptr);
    for (auto& [msn, entry] : msnToQueries_) retire(entry.get());
    // None is deleted while another one still pins it or shares anything with it, in whatever order they go.
    for (VXClientClass* zombie : zombies_) zombie->releaseQueryReferences();
    for (VXClientClass* zombie : zombies_) delete zombie;
}

void SubnodeManager::acquireLock() { ZSV1_GetLock(lock()); }

void SubnodeManager::releaseLock() { ZSV1_ReleaseLock(lock()); }

char* SubnodeManager::generateSubnodeManagedSystemName(const char* appl, const char* key, const char* type, char* buffer) {
    return ::generateSubnodeManagedSystemName(appl, key, type, buffer);
}

char* SubnodeManager::generateSubnodeManagedSystemName(const VXClientClass* queryClass, char* buffer) {
    const AttributeGroupMeta* meta = queryClass ? queryClass->getAttributeGroupMeta() : nullptr;
    return ::generateSubnodeManagedSystemName(meta ? meta->applName() : nullptr,
                                              queryClass ? queryClass->getSubnodeKey() : nullptr,
                                              meta ? meta->subnodeType() : nullptr, buffer);
}

char* SubnodeManager::getSubnodeKeyFromManagedSystemName(const char* msn, char* buffer) {
    TRACE_FUNCTION();
    const char* first = msn ? std::strchr(msn, ':') : nullptr;
    const char* last = msn ? std::strrchr(msn, ':') : nullptr;
    if (!first || first == last) {
        trace_error("Failed due to malformed msn=\"%s\", keyEnd=%d, keyStart=%d", msn ? msn : "",
                    last ? static_cast<int>(last - msn) : -1, first ? static_cast<int>(first - msn) + 1 : 0);
        return nullptr;
    }
    if (!buffer) buffer = static_cast<char*>(std::malloc(MANAGED_SYSTEM_NAME_SIZE));
    if (!buffer) return nullptr;
    std::snprintf(buffer, MANAGED_SYSTEM_NAME_SIZE, "%.*s", static_cast<int>(last - first - 1), first + 1);
    return buffer;
}

char* SubnodeManager::generatePointerString(const void* pointer, char* out) {
    std::snprintf(out, 20, "%p", pointer);
    return out;
}

bool SubnodeManager::isManagingSubnode(const char* msn) {
    if (!msn) return false;
    const std::lock_guard guard(leaf_);
    return msnToQueries_.find(msn) != msnToQueries_.end();
}

ClassPin SubnodeManager::getSubnodeQueryClass(const char* msn, const AttributeGroupMeta* meta) {
    const char* group = groupOf(meta);
    if (!msn || !group) return {};
    const std::lock_guard guard(leaf_);
    const auto found = msnToQueries_.find(msn);
    return found == msnToQueries_.end() ? ClassPin() : ClassPin(found->second->classes.getClientClass(group));
}

ClassPin SubnodeManager::getSubnodeQueryClassByKey(const char* key, const AttributeGroupMeta* meta) {
    char msn[MANAGED_SYSTEM_NAME_SIZE];
    if (!meta || !meta->subnodeType()) return {};  // in no subnode; that is no error
    if (!::generateSubnodeManagedSystemName(meta->applName(), key, meta->subnodeType(), msn)) return {};
    return getSubnodeQueryClass(msn, meta);
}

ClassPins SubnodeManager::getAllSubnodeQueryClasses(const char* attributeGroup) {
    ClassPins pins;
    if (!attributeGroup) return pins;
    const std::lock_guard guard(leaf_);
    const auto found = agToQueries_.find(attributeGroup);
    if (found == agToQueries_.end()) return pins;
    pins.reserve(found->second.size());
    for (VXClientClass* clone : found->second) pins.emplace_back(clone);
    return pins;
}

ClassPins SubnodeManager::getAllSubnodeQueryClasses(const AttributeGroupMeta* meta) {
    return getAllSubnodeQueryClasses(groupOf(meta));
}

ClassPins SubnodeManager::getAllSubnodeQueryClasses(const char* appl, const char* key, const char* type) {
    ClassPins pins;
    char msn[MANAGED_SYSTEM_NAME_SIZE];
    if (!::generateSubnodeManagedSystemName(appl, key, type, msn)) return pins;
    const std::lock_guard guard(leaf_);
    const auto found = msnToQueries_.find(msn);
    if (found == msnToQueries_.end()) return pins;
    for (ListCursor c = found->second->classes.getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        pins.emplace_back(static_cast<VXClientClass*>(c.getCurrentElement()));
    }
    return pins;
}
