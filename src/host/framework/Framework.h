// Everything the framework holds, made at first use and never destroyed: threads that hang inside the agent
// may outlive main.
#pragma once

#include "host/framework/ActionBroker.h"
#include "host/framework/AgentInfo.h"
#include "host/framework/EventFeed.h"
#include "host/framework/Lifecycle.h"
#include "host/framework/RequestBroker.h"
#include "host/framework/SubnodeDirectory.h"
#include "host/framework/TableCatalog.h"

namespace almanac::host {

struct Framework {
    Lifecycle lifecycle;
    AgentInfo agent;
    TableCatalog catalog;
    SubnodeDirectory subnodes;
    RequestBroker broker;
    CommandCatalog commands;
    ActionBroker actions{broker, agent, catalog, commands};
    EventFeed events;

    // RegisterClass: adds the table, and learns its columns on a request thread if the loader has returned.
    void tableRegistered(TableManager* manager);
    // The loader has returned: learns the tables' columns on this thread and serves requests from then on.
    void loaderReturned();
};

Framework& framework();

}  // namespace almanac::host
