// JoinedEventRouter: hands an event row to the join classes that use its source. The join room registers one before
// main; without it events go to their own table only.
#pragma once

class ResultInstance;
class VXClientClass;

class JoinedEventRouter {
  public:
    virtual ~JoinedEventRouter() = default;
    // True while nobody would hear of an event: nothing is then made ready for it.
    virtual bool isIdle() const { return false; }
    virtual void routeEvent(VXClientClass* source, ResultInstance* row) = 0;
};

JoinedEventRouter* joinedEventRouter();
void registerJoinedEventRouter(JoinedEventRouter* router);
