// XMLHandler: what a Parser calls. The base class ignores everything.
#pragma once

class HashMap;

class XMLHandler {
  public:
    virtual ~XMLHandler() = default;
    // `attributes` maps names to values (char*); both, and `name`, point into the parsed buffer and hold during the
    // call. Never null.
    virtual void startElement(const char* name, HashMap* attributes);
    virtual void endElement(const char* name);
    // Text between two tags, untrimmed, entities replaced.
    virtual void characters(const char* text);
    virtual void fatalError(const char* message);

    // Format the message ("%s" once or twice) and hand it to fatalError(message).
    void fatalError(const char* format, const char* arg);
    void fatalError(const char* format, const char* arg1, const char* arg2);
};
