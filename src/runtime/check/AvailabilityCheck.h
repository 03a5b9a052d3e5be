// The checks of process_list and app_ping_list sections and of the attribute group that they fill.
#pragma once

#include <vector>

#include "runtime/check/XmlDocument.h"

// `sections` are those of the whole file; `group` is the attribute group's `ag` element, null if it is not declared.
void checkAvailability(const std::vector<const XmlElement*>& sections, const XmlElement* group, std::vector<Problem>* problems);
