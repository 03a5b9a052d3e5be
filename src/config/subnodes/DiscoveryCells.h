// The cells of a discovery group's rows.
#pragma once

#include <string>
#include <vector>

class ResultInstance;
class ResultsManager;

namespace DiscoveryCells {

// The text of a row's cell. False if there is none: no such cell, or one that holds no text.
bool text(const ResultInstance* row, const char* attribute, std::string* out);
// The "Subnode_MSN" cells of all current rows, in their order. Takes the results lock.
std::vector<std::string> managedSystemNames(ResultsManager* discovery);

}  // namespace DiscoveryCells
