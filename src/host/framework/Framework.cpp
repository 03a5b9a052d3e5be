#include "host/framework/Framework.h"

namespace almanac::host {

Framework& framework() {
    static Framework* const instance = new Framework;
    return *instance;
}

void Framework::tableRegistered(TableManager* manager) {
    const std::shared_ptr<TableEntry> entry = catalog.add(manager);
    if (!broker.ready()) return;
    broker.runHousekeeping([entry](bool run) {
        if (run) entry->learn();
    });
}

void Framework::loaderReturned() {
    catalog.learnAll();
    broker.setReady();
    catalog.learnAll();  // what was registered between the two
}

}  // namespace almanac::host
