// The pure event lock: who hands an event of a client program to a subnode's class holds it from looking the class up
// until the event is delivered, and a clone becomes a zombie only under it. Recursive; behind the subnode lock, before
// the mutexes of classes. Never held around a collection.
#pragma once

void acquirePureEventLock();
void releasePureEventLock();

class PureEventGuard {
  public:
    PureEventGuard() { acquirePureEventLock(); }
    ~PureEventGuard() { releasePureEventLock(); }
    PureEventGuard(const PureEventGuard&) = delete;
    PureEventGuard& operator=(const PureEventGuard&) = delete;
};
