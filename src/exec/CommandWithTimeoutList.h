// The abandoned commands of one owner. No lock: used from one collection at a time.
#pragma once

#include "exec/CommandWithTimeout.h"
#include "foundation/List.h"

class CommandWithTimeoutList : public List {
  public:
    // Outstanding commands beyond which an owner starts no further one.
    static constexpr int kMostOutstanding = 9;

    // Joins, removes and destroys the commands that have ended since. Kept: one whose launch failed is not among
    // them; it stays and counts.
    void cleanupFinishedCommands();

    // Whether the owner must not start another command; traces so at error level if it must not.
    bool tooManyOutstanding(const char* command) const;

    // For an owner that ends: gives up every command that is left (CommandWithTimeout::letGo). The destructor itself
    // touches no element.
    void letGoOfAll();
};
