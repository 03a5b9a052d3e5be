// The texts of proc(5) as figures of a record: pure functions of their bytes. A figure that a text does not supply keeps
// the value it has in the record. The formats of sscanf are met by TextScan.
#pragma once

#include <string_view>

#include "providers/local/proctable/ProcList.h"

// The longest line of a file, without its end, that reads.
inline constexpr std::size_t kLongestProcLine = 1023;

// Cuts the next line off the text. False, as it is for the line reader of files, for a line that is too long or has no line
// end; a NUL ends the line, not what is cut off.
bool nextProcLine(std::string_view& text, std::string_view& line);

// Where the times of a process stand in `stat`.
enum class StatRule {
    Tail,    // Kept: at the end of the line (fields 42 to 45) as soon as 38 figures were read, else in fields 14 to 17
    Fields,  // in fields 14 to 17; the fields are counted from behind the last bracket, so the name may hold anything
};
// Each of these returns null, or the message, a literal, of what made the text unreadable.
const char* parseStat(std::string_view text, StatRule rule, procstat* record);
const char* parseStatM(std::string_view text, procstat* record);

// Which lines of `status` are read.
enum class StatusRule {
    // Kept: six lines that identify the process, then memory and threads; once seven others were seen there, the next one
    // gives the memory up: what the file has not supplied until then is 0 (but for vm_data), and only the thread count is
    // still looked for, -1 if it does not come. A line that does not read, or none, fails before that.
    Order,
    // Each by its name, wherever it stands. A process without memory has none (zeros), one without threads -1.
    Names,
};
const char* parseStatus(std::string_view text, StatusRule rule, procstat* record);

// How wide the figures of `io` are.
enum class IoRule {
    Narrow,  // Kept: 32 bits with a sign, which wrap past 2 GB
    Wide,    // 64 bits; what the text does not supply is 0
};
// `io`; a line that does not read ends it.
void parseIO(std::string_view text, IoRule rule, procstat* record);

// `uptime`: whole seconds, false if it is no number.
bool parseUptime(const char* text, unsigned long* seconds);
