// Where an event row goes: to every open request of the row's table. The table manager is one; the metadata of an
// attribute group holds it once the table is registered.
#pragma once

class EventSink {
  public:
    virtual ~EventSink() = default;
    // Takes one row of `size` bytes, any thread. Returns the last status other than 0.
    virtual int EventArrived(char* row, int size) = 0;
};
