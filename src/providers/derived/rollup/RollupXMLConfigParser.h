// The `rollup` section of the reference file.
#pragma once

#include <memory>

#include "providers/derived/rollup/RollupClass.h"
#include "runtime/reference/XMLConfigParser.h"

class RollupXMLConfigParser : public XMLConfigParser {
  public:
    RollupXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    // At the section's end the query class goes to the list of all query classes.
    void endElement(const char* name) override;

  private:
    std::unique_ptr<RollupClass> query_;
};
