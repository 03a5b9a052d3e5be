// XMLConfigParser: the base of every section parser of the reference file, and their registry. A section parser is
// a process-lifetime object whose constructor registers it before main.
#pragma once

#include "runtime/reference/XMLHandler.h"

class Metric;

class XMLConfigParser : public XMLHandler {
  public:
    // True only for a present attribute that is exactly "true".
    static bool getBoolean(const HashMap* attributes, const char* name);
    // atoi of the value, 0 if absent.
    static int getInteger(const HashMap* attributes, const char* name);
    // The value, or null.
    static const char* getText(const HashMap* attributes, const char* name);
    // Reads the attributes that all metric elements share: type, key, visible, counter, size, name, metricName, map,
    // arg1/op/arg2, formula, scale, scaleTransparent, precision. Defined in collection/expression/.
    static void initializeMetric(Metric* metric, const HashMap* attributes);
};

// Ties an element's name to its parser; a later registration of the same name replaces the earlier one.
void registerXMLConfigParser(const char* element, XMLConfigParser* parser);
XMLConfigParser* findXMLConfigParser(const char* element);
// The registry itself, element name to XMLConfigParser*.
HashMap* xmlConfigParsers();

// The dispatcher: outside a section it looks every element up in the registry, inside one it forwards everything to
// the section's parser until the element of the section's own name ends.
class ConfigXMLParser : public XMLConfigParser {
  public:
    void startElement(const char* name, HashMap* attributes) override;
    void endElement(const char* name) override;
    void characters(const char* text) override;
    // Traces "Fatal XML error" and ends the agent with code -1.
    void fatalError(const char* message) override;
    using XMLHandler::fatalError;

  private:
    XMLConfigParser* section_ = nullptr;
    const char* sectionName_ = nullptr;  // points into the parsed buffer
};

// Reads and parses the reference file. False if it cannot be opened or read; a syntax error ends the agent.
bool initFromFile(const char* path);
