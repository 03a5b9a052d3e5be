// Maps whose keys and values came from the C heap.
#pragma once

#include <cstdlib>

#include "foundation/HashMap.h"

// Frees all keys and values and empties the map.
inline void freeKeysAndValues(HashMap& map) {
    map.foreach (
        [](const char* key, const void* value, void*) {
            std::free(const_cast<char*>(key));
            std::free(const_cast<void*>(value));
        },
        nullptr);
    map.clear();
}
