// The `script` section of the reference file: its metrics and the files it copies to a remote host.
#include <cstring>

#include "collection/QueryClassXMLConfigParser.h"
#include "providers/local/script/ShellQueryClass.h"

namespace {

class ScriptXMLConfigParser : public QueryClassXMLConfigParser {
  public:
    ScriptXMLConfigParser() : QueryClassXMLConfigParser("script") {}

  protected:
    VXClientClass* makeQueryClass(const HashMap* attributes) override {
        require(attributes, {"command", "separator", "name"});
        return new ShellQueryClass(getText(attributes, "app"), getText(attributes, "ag"), getText(attributes, "command"),
                                   getText(attributes, "separator"), getText(attributes, "name"),
                                   getBoolean(attributes, "utf8_input"), getBoolean(attributes, "ssh"));
    }
    void startOther(const char* name, const HashMap* attributes, VXClientClass* query) override {
        if (std::strcmp(name, "File") == 0) static_cast<ShellQueryClass*>(query)->addCommandFile(getText(attributes, "Name"));
    }
};

[[maybe_unused]] ScriptXMLConfigParser& scriptParser = *new ScriptXMLConfigParser;

}  // namespace
