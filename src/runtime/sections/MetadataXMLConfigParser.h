// The `metadata` section: attribute groups, their attributes, and the place of each in the row.
#pragma once

#include <string>

#include "foundation/List.h"
#include "runtime/reference/XMLConfigParser.h"

class AttributeGroupMeta;

class MetadataXMLConfigParser : public XMLConfigParser {
  public:
    MetadataXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    void endElement(const char* name) override;

  private:
    void startGroup(const HashMap* attributes);
    void addAttribute(const HashMap* attributes);
    void endGroup();

    int offset_ = 0;
    AttributeGroupMeta* group_ = nullptr;
    List attributes_;
    std::string groupName_;
};

// The `perf_object_enum_list` section: enumerations of the status table.
class PerfObjectEnumXMLConfigParser : public XMLConfigParser {
  public:
    PerfObjectEnumXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    void endElement(const char* name) override;
    void fatalError(const char* message) override;
    using XMLHandler::fatalError;
};
