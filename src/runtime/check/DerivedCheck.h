// The checks of join, rollup and filter sections: whether what they name exists, and whether a filter can be read.
#pragma once

#include <string>
#include <vector>

#include "runtime/check/XmlDocument.h"

// `sections` are those of the whole file that make query classes; `text` is the file.
void checkDerivedTables(const std::vector<const XmlElement*>& sections, const std::string& text, std::vector<Problem>* problems);
