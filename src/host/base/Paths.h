// Where the host keeps its files. Both paths can be moved by the environment of the process alone (never by
// the configuration file, which is found through them).
#pragma once

#include <string>

namespace almanac::host {

// A path as it was meant at the start of the process, whose working directory changes later: a relative one gets the
// working directory of the start in front.
std::string fromStart(const std::string& path);

// ALMANAC_DATA_DIR; without it /var/lib/almanac for root and "$XDG_STATE_HOME/almanac" for anybody else, or
// "$HOME/.local/state/almanac" (XDG Base Directory 0.8). Without a home directory the one of
// the password file. No '/' at the end. Never creates anything.
std::string dataDirectory();

// Makes the data directory with mode 0700, parents included. False, with one line in `error` (null allowed),
// if it cannot be made, is no directory, belongs to another user or can be written by group or others.
bool prepareDataDirectory(std::string* error);

// ALMANAC_CONFIG, else "<data directory>/almanac.toml". The file need not exist.
std::string hostConfigurationFile();

// The program's fixed name, as given to ZSV1_Main; "almanac" before.
void setProgramName(const std::string& name);
std::string programName();

}  // namespace almanac::host
