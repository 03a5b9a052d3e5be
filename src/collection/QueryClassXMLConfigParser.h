// QueryClassXMLConfigParser: the parser of a section that makes one query class. The section's tag makes the class, each
// `metric` element inside adds a metric, and at the section's end the class goes to the list of all query classes. A data
// source says how its class and, if need be, its metrics are made.
#pragma once

#include <initializer_list>
#include <memory>

#include "collection/VXClientClass.h"
#include "runtime/reference/XMLConfigParser.h"

class QueryClassXMLConfigParser : public XMLConfigParser {
  public:
    // Registers itself for the section; the name is kept as it comes.
    explicit QueryClassXMLConfigParser(const char* section);
    void startElement(const char* name, HashMap* attributes) override;
    void endElement(const char* name) override;

  protected:
    // A new query class of the section's attributes.
    virtual VXClientClass* makeQueryClass(const HashMap* attributes) = 0;
    // A new metric object; the attributes that all metrics share are read into it afterwards.
    virtual Metric* makeMetric(const HashMap* attributes);
    // Any other element of the section, whose query class stands.
    virtual void startOther(const char* name, const HashMap* attributes, VXClientClass* query);
    // Traces each of these attributes that is missing; it counts as empty.
    void require(const HashMap* attributes, std::initializer_list<const char*> names) const;

  private:
    const char* section_;
    std::unique_ptr<VXClientClass> query_;
};
