// The word that was meant.
#pragma once

#include <string>
#include <vector>

// The known word closest to a wrong one, null if none is close.
const char* closest(const std::string& word, const std::vector<const char*>& known);
// "; did you mean '…'?", empty if none is close.
std::string didYouMean(const std::string& word, const std::vector<const char*>& known);
