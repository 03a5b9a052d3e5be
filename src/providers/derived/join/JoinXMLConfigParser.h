// The `join` section of the reference file: its two sides, and the metrics it shows of them.
#pragma once

#include <memory>

#include "providers/derived/join/Join2VXClientClasses.h"
#include "runtime/reference/XMLConfigParser.h"

class JoinXMLConfigParser : public XMLConfigParser {
  public:
    JoinXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    // At the section's end the query class goes to the list of all query classes.
    void endElement(const char* name) override;

  private:
    void startJoin(const HashMap* attributes);
    void addMetric(const HashMap* attributes);

    std::unique_ptr<Join2VXClientClasses> query_;
};
