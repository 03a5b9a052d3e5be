// The `filter` section of the reference file: its sources, its expression and the attributes it shows.
#pragma once

#include <memory>

#include "providers/derived/filter/FilterQueryClass.h"
#include "runtime/reference/XMLConfigParser.h"

class FilterXMLConfigParser : public XMLConfigParser {
  public:
    FilterXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    // At the section's end the query class goes to the list of all query classes.
    void endElement(const char* name) override;

  private:
    void startFilter(const HashMap* attributes);
    void addMetric(const HashMap* attributes);

    std::unique_ptr<FilterQueryClass> query_;
};
