// The agent's own sections `appl`, `env_variable` and `repeatable_section`.
#pragma once

#include "runtime/reference/XMLConfigParser.h"

// Fills the application's texts and loads the agent's configuration.
class ApplicationXMLConfigParser : public XMLConfigParser {
  public:
    ApplicationXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
};

// Puts a variable of the environment into the configuration.
class AgentEnvironmentXMLConfigParser : public XMLConfigParser {
  public:
    AgentEnvironmentXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
};

// Notes a section of the configuration that repeats once for each subnode. It must stand before `appl`, which loads the
// configuration.
class RuntimeConfigXMLConfigParser : public XMLConfigParser {
  public:
    RuntimeConfigXMLConfigParser();
    void startElement(const char* name, HashMap* attributes) override;
};
