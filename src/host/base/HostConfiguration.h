// The host's own configuration file: TOML (v1.0.0), whose table [environment] gives values to variables that
// the environment of the process does not have, and whose table [actions] says what may be run. Read once, at the first question.
#pragma once

#include <string>

namespace almanac::host {

// Reads the file if nobody has. A file that does not exist is an empty one. False if it is broken, cannot be
// read, or gives a variable something else than a text, a number or a boolean; `error` (null allowed) is then
// one line, "file:line:column: ..." where there is a place. A broken file counts as empty from then on.
bool loadHostConfiguration(std::string* error);

// The value of a variable in [environment], or null. The text stays valid for the life of the process. The
// first question of a process that has not called loadHostConfiguration puts the error line on stderr.
const char* hostConfigurationValue(const char* name);

// Whether [actions] lets command text through that names no declared task: its entry free_text, false if there is none.
bool hostConfigurationAllowsFreeText();

// For tests: the next question reads the file anew. Values given out stay valid.
void forgetHostConfiguration();

}  // namespace almanac::host
