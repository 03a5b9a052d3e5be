// A text of the reference file with each ${NAME} in it replaced by the configuration's value.
#pragma once

#include <cstdlib>
#include <string>

#include "foundation/Utilities.h"

// `allowAll` lifts the restriction on names: for texts that are compared, never run. Null counts as an empty text.
inline std::string substitutedText(const char* text, bool allowAll) {
    char* replaced = Utilities::substituteEnvVars(text, nullptr, nullptr, allowAll);
    std::string copy = replaced ? replaced : "";
    std::free(replaced);
    return copy;
}
