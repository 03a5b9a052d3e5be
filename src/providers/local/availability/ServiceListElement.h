// A filter on services (FILTER_TYPE_SERVICE). No section of the reference file makes one on this platform, where services
// are processes; the table keeps the type's number for those that have them.
#pragma once

#include <string>

#include "foundation/List.h"

class ServiceListElement : public ListElement {
  public:
    // Null texts count as empty ones.
    ServiceListElement(const char* component, const char* serviceName, const char* fullName, bool useFullName,
                       bool includeChildProcesses, const char* childComponent, bool fullnameIsDisplayname = true);

    // Without regard to case: with a full name to be used, whether the text holds it, else whether it is the service's name.
    bool isEqual(const char* name) const;

    const char* getApplicationComponent() const { return component_.c_str(); }
    const char* getServiceName() const { return serviceName_.c_str(); }
    bool wasMatchFound() const { return matchFound_; }
    void setMatchFound(bool found) { matchFound_ = found; }
    bool shouldIncludeChildProcesses() const { return includeChildProcesses_; }
    const char* getChildApplicationCompName() const { return childComponent_.c_str(); }
    bool isFullnameDisplayname() const { return fullnameIsDisplayname_; }

  private:
    std::string component_;
    std::string serviceName_;
    std::string foldedFullName_;
    bool useFullName_;
    bool matchFound_ = false;
    bool includeChildProcesses_;
    std::string childComponent_;
    bool fullnameIsDisplayname_;
};
