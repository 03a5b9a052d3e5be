// Replaces a file in one step: whoever reads it, at whatever moment, finds the old content or the new.
#pragma once

#include <string>

namespace almanac::host {

// Writes a file beside `path` (mode 0600), syncs it, renames it over `path` and syncs the folder. False, with
// one line in `error`, leaves `path` as it was and nothing beside it. What a killed process left beside it is
// removed first.
bool replaceFile(const std::string& path, const std::string& content, std::string* error);

}  // namespace almanac::host
