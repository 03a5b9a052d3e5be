// Hands every event to the joins that use its source.
#include <cstring>

#include "collection/JoinedEventRouter.h"
#include "collection/SubnodeDirectory.h"
#include "foundation/Trace.h"
#include "providers/derived/join/Join2VXClientClasses.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// The join behind a class if it is a pure one that reads this attribute group, else null.
Join2VXClientClasses* pureJoinOf(VXClientClass* queryClass, const char* group) {
    auto* join = dynamic_cast<Join2VXClientClasses*>(queryClass);
    if (!join || !join->isPureEventBased()) return nullptr;
    const bool reads = std::strcmp(join->getFirstQuery()->getClassName(), group) == 0 ||
                       std::strcmp(join->getSecondQuery()->getClassName(), group) == 0;
    return reads ? join : nullptr;
}

class JoinRouter : public JoinedEventRouter {
  public:
    bool isIdle() const override { return Join2VXClientClasses::count() == 0; }

    void routeEvent(VXClientClass* source, ResultInstance* row) override {
        TRACE_MESSAGES();
        const VXClientClassList* all = getGlobalQueryClassList();
        if (isIdle() || !all) return;
        for (ListCursor c = all->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
            auto* declared = static_cast<VXClientClass*>(c.getCurrentElement());
            if (declared->getObjectType() != VX_JOIN) continue;
            trace_detail("Found a Join class %s", declared->getAttributeGroup());
            const AttributeGroupMeta* meta = declared->getAttributeGroupMeta();
            if (meta && meta->subnodeType()) {
                toClones(source, declared->getAttributeGroup(), row);
            } else if (Join2VXClientClasses* join = pureJoinOf(declared, source->getAttributeGroup())) {
                trace_detail("Found matching join query class %s", join->getAttributeGroup());
                join->processEventData(row);
            }
        }
    }

  private:
    // Every clone that reads the source's group hears of the event, whatever subnode it came from. The clones are pinned
    // by the look-up; the subnode lock is never waited for on a thread that delivers events.
    static void toClones(const VXClientClass* source, const char* group, ResultInstance* row) {
        TRACE_MESSAGES();
        SubnodeDirectory* directory = subnodeDirectory();
        const ClassPins clones = directory ? directory->getAllSubnodeQueryClasses(group) : ClassPins();
        if (clones.empty()) trace_detail("No subnode instances found for group %s", group);
        for (const ClassPin& clone : clones) {
            Join2VXClientClasses* join = pureJoinOf(clone.get(), source->getAttributeGroup());
            if (!join) continue;
            trace_detail("Found matching subnode instance join query class %s", join->getAttributeGroup());
            join->processEventData(row);
        }
    }
};

[[gnu::used]] JoinRouter* joinRouter = new JoinRouter;  // never destroyed: threads may outlive main
const bool registered = (registerJoinedEventRouter(joinRouter), true);

}  // namespace
