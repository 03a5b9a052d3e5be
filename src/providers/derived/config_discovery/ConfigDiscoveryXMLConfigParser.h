// The `config_discovery` section of the reference file.
#pragma once

#include <memory>

#include "providers/derived/config_discovery/ConfigDiscoveryQueryClass.h"
#include "runtime/reference/XMLConfigParser.h"

class ConfigDiscoveryXMLConfigParser : public XMLConfigParser {
  public:
    ConfigDiscoveryXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    // At the section's end the query class goes to the list of all query classes.
    void endElement(const char* name) override;

  private:
    std::unique_ptr<ConfigDiscoveryQueryClass> query_;
};
