// The checks of task sections: what the daemon would take without a word and the operator did not mean.
#pragma once

#include <string>
#include <vector>

#include "runtime/check/XmlDocument.h"

// `sections` are those of the whole file, in its order; `text` is the file.
void checkTasks(const std::vector<const XmlElement*>& sections, const std::string& text, std::vector<Problem>* problems);
