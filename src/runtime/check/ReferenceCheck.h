// ReferenceCheck: every problem of a reference file that can be found without running the agent.
#pragma once

#include <string>
#include <vector>

#include "runtime/check/XmlDocument.h"

// The problems of a text, in the order of their places.
std::vector<Problem> checkReferenceText(const std::string& text);

// "file:line:column: error: …", the line and a caret under the place. Lines and columns count from 1, columns in bytes.
std::string formatProblem(const std::string& file, const std::string& text, const Problem& problem);

// The known word closest to a wrong one, null if none is close.
const char* closest(const std::string& word, const std::vector<const char*>& known);
// It as a question to end a message with; empty if none is close.
std::string didYouMean(const std::string& word, const std::vector<const char*>& known);
