// A filter on processes: a `process` element of a `process_list`. All comparisons are without regard to the case of ASCII
// letters.
#pragma once

#include <string>

#include "foundation/List.h"
#include "providers/local/availability/ProcessText.h"

// The attributes of a `process` element; a null text is an absent one.
struct ProcessFilter {
    const char* applicationComponent = nullptr;       // `name`
    const char* baseName = nullptr;                   // `procname`
    const char* fullName = nullptr;                   // `fullname`
    const char* arg = nullptr;
    const char* value = nullptr;
    bool useFullName = false;                         // `matchfullname`
    bool useArg = false;                              // `matcharg`
    bool useFullArg = false;                          // `matchfullarg`
    bool useArgWithValue = false;                     // `matchargwithvalue`
    bool includeChildProcesses = false;
    const char* childApplicationComponent = nullptr;  // `childApplicationCompName`
};

class ProcessListElement : public ListElement {
  public:
    // ${NAME} in component, names, arg and value is replaced, whatever the name; absent texts count as empty ones.
    explicit ProcessListElement(const ProcessFilter& filter);

    // Whether a process matches: always with the base name "*"; else the base name must be the filter's, the full name
    // must hold the filter's one if that is asked for, and so for each of the three tests of arguments.
    bool isEqual(const char* basename, const char* fullName, const char* commandLine) const;
    bool isEqual(ProcessText& process) const;

    bool isWildcard() const { return foldedBaseName_ == "*"; }
    const std::string& foldedBaseName() const { return foldedBaseName_; }
    bool shouldIncludeChildProcesses() const { return includeChildProcesses_; }
    const char* getApplicationComponent() const { return component_.c_str(); }
    const char* getProcessName() const { return baseName_.c_str(); }  // the base name of the filter
    // What children of its processes are reported under: as given, else "Subprocess of " and the component.
    const char* getChildApplicationCompName() const { return childComponent_.c_str(); }

  private:
    std::string component_;
    std::string baseName_;
    std::string foldedBaseName_;
    std::string foldedFullName_;
    std::string foldedArg_;
    std::string foldedValue_;
    bool useFullName_;
    bool useArgWithValue_;
    bool useFullArg_;
    bool useArg_;
    bool includeChildProcesses_;
    std::string childComponent_;
};
