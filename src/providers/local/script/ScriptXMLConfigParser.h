// The `script` section of the reference file: its metrics and the files it copies to a remote host.
#pragma once

#include <memory>

#include "providers/local/script/ShellQueryClass.h"
#include "runtime/reference/XMLConfigParser.h"

class ScriptXMLConfigParser : public XMLConfigParser {
  public:
    ScriptXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
    // At the section's end the query class goes to the list of all query classes.
    void endElement(const char* name) override;

  private:
    void startScript(const HashMap* attributes);

    std::unique_ptr<ShellQueryClass> query_;
};
