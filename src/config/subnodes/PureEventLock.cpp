#include "config/subnodes/PureEventLock.h"

#include "platform/zsb.h"

namespace {

// Both live in static storage without a destructor: threads may outlive main.
ZSV1_Lock pureEventLock;
ZSV1_Once pureEventLockOnce;

ZSV1_Lock* lock() {
    ZSV1_InitializeOnce(
        &pureEventLockOnce, [](void*) { ZSV1_InitializeLock(&pureEventLock); }, nullptr);
    return &pureEventLock;
}

}  // namespace

void acquirePureEventLock() { ZSV1_GetLock(lock()); }

void releasePureEventLock() { ZSV1_ReleaseLock(lock()); }
