#include "providers/local/availability/ProcessListElement.h"

#include "providers/local/availability/SubstitutedText.h"

namespace {

// Every variable may be named in a filter: its texts are compared, never run.
std::string substituted(const char* text) { return substitutedText(text, true); }

}  // namespace

ProcessListElement::ProcessListElement(const ProcessFilter& filter)
    : component_(substituted(filter.applicationComponent)),
      baseName_(substituted(filter.baseName)),
      foldedBaseName_(folded(baseName_)),
      useFullName_(filter.useFullName),
      useArgWithValue_(filter.useArgWithValue),
      useFullArg_(filter.useFullArg),
      useArg_(filter.useArg),
      includeChildProcesses_(filter.includeChildProcesses),
      childComponent_(filter.childApplicationComponent ? filter.childApplicationComponent : "Subprocess of " + component_) {
    if (useFullName_) foldedFullName_ = folded(substituted(filter.fullName));
    if (useArg_ || useFullArg_ || useArgWithValue_) foldedArg_ = folded(substituted(filter.arg));
    if (useArgWithValue_) foldedValue_ = folded(substituted(filter.value));
}

bool ProcessListElement::isEqual(const char* basename, const char* fullName, const char* commandLine) const {
    ProcessText process;
    process.set(basename, fullName, commandLine);
    return isEqual(process);
}

bool ProcessListElement::isEqual(ProcessText& process) const {
    if (isWildcard()) return true;  // whatever else the filter asks for
    if (process.baseName() != foldedBaseName_) return false;
    if (useFullName_ && process.fullName().find(foldedFullName_) == std::string_view::npos) return false;
    if (useArg_ && process.commandLine().find(foldedArg_) == std::string_view::npos) return false;
    if (useArgWithValue_ && !hasArgumentWithValue(process.commandLine(), foldedArg_, foldedValue_)) return false;
    return !useFullArg_ || hasArgument(process.commandLine(), foldedArg_);
}
