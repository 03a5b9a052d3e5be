// SubnodeManager: the keeper of subnodes. A row of a discovery group announces a subnode; the manager registers it with
// the framework and clones, for it, every query class whose group has the subnode's type. What is announced no longer
// is deregistered, and its clones wait as zombies until nobody uses them.
//
// Locks: the subnode lock (recursive, outermost) is held by whoever adds, removes or compares, and across the
// collections that this takes. The maps are changed under it and under a leaf mutex; readers take the leaf mutex alone,
// so no lookup waits for a discovery. docs/decisions/004-subnode-locks.md tells the whole order.
#pragma once

#include <pthread.h>

#include <ctime>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "collection/SubnodeDirectory.h"
#include "config/subnodes/OrderedNames.h"
#include "foundation/StopSignal.h"

class ResultInstance;

// Attributes of a discovery group's rows.
inline constexpr const char* SUBNODE_KEY_QMPV_NAME = "Subnode_Key";
inline constexpr const char* SUBNODE_TYPE_QMPV_NAME = "Subnode_Type";
inline constexpr const char* SUBNODE_AFFINITY_QMPV_NAME = "Subnode_Affinity";
inline constexpr const char* SUBNODE_VERSION_QMPV_NAME = "Subnode_Version";
inline constexpr const char* SUBNODE_MSN_QMPV_NAME = "Subnode_MSN";
inline constexpr const char* SUBNODE_RESOURCE_NAME_QMPV_NAME = "Subnode_Resource_Name";

class SubnodeManager : public SubnodeDirectory {
  public:
    enum class ZombieThread { Start, None };
    explicit SubnodeManager(ZombieThread thread = ZombieThread::Start);
    // Deletes all clones and zombies. Nobody may use any of them, nor the manager, any more. The framework is told
    // nothing.
    ~SubnodeManager() override;
    SubnodeManager(const SubnodeManager&) = delete;
    SubnodeManager& operator=(const SubnodeManager&) = delete;

    void acquireLock() override;
    void releaseLock() override;

    // See collection/ManagedSystemName.h; of a class: from its application, subnode key and subnode type.
    static char* generateSubnodeManagedSystemName(const char* appl, const char* key, const char* type, char* buffer);
    static char* generateSubnodeManagedSystemName(const VXClientClass* queryClass, char* buffer);
    // What stands between the first and the last colon, into `buffer` (33 bytes) or a malloc'd text if it is null. Null
    // for a name without two colons.
    static char* getSubnodeKeyFromManagedSystemName(const char* msn, char* buffer);
    // "%p" of the pointer into `out` (20 bytes); returns it.
    static char* generatePointerString(const void* pointer, char* out);

    // Registers a subnode and makes its clones; false if it was not added. Nothing is left of a failed one.
    bool addSubnode(const char* msn, const char* key, const char* type, const char* affinity, const char* version,
                    VXClientClass* dag);
    // Deregisters a subnode and retires its clones, after the subnodes that they have announced. False if it stays.
    bool removeSubnode(const char* msn);

    void discoveryAttributeGroupWasUpdated(VXClientClass* dag) override;
    // At most one collection a second for each discovery class: a program that has gone away makes all its subnodes
    // unavailable at once.
    void updateDiscoveryAttributeGroupForSubnode(const char* msn) override;

    bool isManagingSubnode(const char* msn) override;
    ClassPin getSubnodeQueryClass(const char* msn, const AttributeGroupMeta* meta) override;
    ClassPin getSubnodeQueryClassByKey(const char* key, const AttributeGroupMeta* meta) override;
    ClassPins getAllSubnodeQueryClasses(const char* attributeGroup) override;
    ClassPins getAllSubnodeQueryClasses(const AttributeGroupMeta* meta) override;
    ClassPins getAllSubnodeQueryClasses(const char* appl, const char* key, const char* type) override;

    // Deletes the zombies that nobody uses and nobody refers to, in cycles until one deletes nothing; their number.
    // Where only rings are left, zombies that are held by nobody but each other let go first.
    int collectGarbage();
    // The thread's body: collects garbage at its interval until it is stopped.
    void zombieKiller();
    // Stops the thread. False if it did not end in time; the manager must not be deleted then.
    bool stopZombieKiller(long milliseconds);
    int zombieCount();

  private:
    using Clones = std::list<VXClientClass*>;
    struct _MSNToQueriesEntry {
        VXClientClass* dag = nullptr;  // who announced it; null once that one is gone
        int depth = 1;                 // one more than that of the subnode whose clone announced it
        VXClientClassList classes;
        std::vector<std::pair<VXClientClass*, Clones::iterator>> listed;  // where each stands in agToQueries_
    };
    struct Announced {
        OrderedNames names;
        timespec forced{};  // monotonic time of the last forced collection
        bool everForced = false;
    };
    // A row of a discovery group, copied out.
    struct Row {
        std::string msn, key, type, affinity, version;
    };

    void startZombieKiller();
    bool registerSubnode(const char* msn, const char* type, const char* affinity, const char* version,
                         const VXClientClass* dag);
    void cloneClasses(_MSNToQueriesEntry* entry, const char* msn, const char* key, const char* type);
    void publish(const char* msn, std::unique_ptr<_MSNToQueriesEntry> entry);
    std::unique_ptr<_MSNToQueriesEntry> withdraw(const char* msn);
    void removeAGToQueriesEntry(const VXClientClass* clone, Clones::iterator place);
    void discoverWithin(const std::vector<VXClientClass*>& clones);
    void retire(_MSNToQueriesEntry* entry);
    void removeAnnouncedBy(VXClientClass* dag);
    void removeDAGToMSNsEntry(const VXClientClass* dag, const char* msn);
    static bool readRow(const VXClientClass* dag, const ResultInstance* row, Row* read);
    int depthOf(const VXClientClass* dag) const;
    bool readRows(VXClientClass* dag, std::vector<Row>* rows) const;
    void retryOrphans();
    std::vector<std::string> announcedBy(const VXClientClass* dag) const;
    std::unordered_set<const VXClientClass*> refereesOfLive() const;
    std::vector<VXClientClass*> takeDeletable();
    bool letRingsGo();

    std::mutex leaf_;  // beside the subnode lock for who changes the first two; alone for who reads them
    std::unordered_map<std::string, std::unique_ptr<_MSNToQueriesEntry>> msnToQueries_;
    std::unordered_map<std::string, Clones> agToQueries_;
    // Under the subnode lock alone. By the text of the discovery class's pointer; that of null holds the subnodes whose
    // announcer went before they could be deregistered.
    std::unordered_map<std::string, Announced> dagToMSNs_;
    std::vector<VXClientClass*> zombies_;

    StopSignal stop_;
    bool threadRuns_ = false;
    pthread_t thread_{};
};

// The manager of the agent, made at first use and registered as the directory of subnodes.
SubnodeManager* getSubnodeManager();
// Stops the manager's thread; true if there is no manager.
bool stopSubnodeManager(long milliseconds);
// Deletes the manager, if there is one; before the classes that its clones were copied from.
void deleteSubnodeManager();
