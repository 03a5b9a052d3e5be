// Tracing at run time: which classes are on, and where the lines go. Lines have the form
//
//   2026-03-01 12:00:00.123 4711 Parser.cpp:42 parse E text of the message
//
// with local time, kernel thread id, file, line, function and one letter for the class (E error, F flow, S
// state, D detail). Every operation may be called from any thread; none throws.
#pragma once

#include <cstdint>
#include <string>

namespace almanac::host {

// The longest line, line feed included; a longer one is cut and ends with "...".
inline constexpr int kTraceLineLimit = 16 * 1024;

// Takes a selection (the grammar is in TraceSelection.h) and applies it to every function that has traced or
// will. False for a text outside the grammar: `error` (null allowed) says why, and the old one stands.
// Without a call the value of ZSB_ZTR1 counts, and ERROR if that is not set or wrong.
bool configureTrace(const std::string& spec, std::string* error);

// The present selection.
std::string traceSpec();

// Sends lines elsewhere: a text in the form of ZSB_ZTR1_LOG (TraceLog.h), empty for standard error.
// `fileSize` overrides its LIMIT in bytes when above 0. Without a call the value of ZSB_ZTR1_LOG at the first
// line counts.
void configureTraceLog(const std::string& settings, std::int64_t fileSize = 0);

// How many lines could not be written since the start.
std::uint64_t traceLinesDropped();

}  // namespace almanac::host
