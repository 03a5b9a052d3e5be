#include "providers/local/availability/ServiceListElement.h"

#include "providers/local/availability/ProcessText.h"

namespace {

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

ServiceListElement::ServiceListElement(const char* component, const char* serviceName, const char* fullName, bool useFullName,
                                       bool includeChildProcesses, const char* childComponent, bool fullnameIsDisplayname)
    : component_(orEmpty(component)),
      serviceName_(orEmpty(serviceName)),
      foldedFullName_(folded(orEmpty(fullName))),
      useFullName_(useFullName),
      includeChildProcesses_(includeChildProcesses),
      childComponent_(orEmpty(childComponent)),
      fullnameIsDisplayname_(fullnameIsDisplayname) {}

bool ServiceListElement::isEqual(const char* name) const {
    const std::string text = folded(orEmpty(name));
    return useFullName_ ? text.find(foldedFullName_) != std::string::npos : text == folded(serviceName_);
}
