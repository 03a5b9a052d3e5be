// The pure event lock: a clone becomes a zombie only under it. Who hands an event of a client program to a subnode's class
// may look the class up under it and pins it, and delivers the event after releasing it: a joined event may collect.
// Recursive; behind the subnode lock, before the mutexes of classes. Never held around a collection.
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
