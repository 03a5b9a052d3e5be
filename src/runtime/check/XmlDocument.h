// XmlDocument: a reference file as a tree with places, read by the same Parser as the daemon's. The daemon ends at the
// first syntax error; here each error is noted, the construct that failed is blanked out, and the parse starts again.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct XmlAttribute {
    std::string name;
    std::string value;
    std::size_t offset;       // of the name
    std::size_t valueOffset;  // of the value's first byte
};

struct XmlElement {
    std::string name;
    std::size_t offset = 0;  // of its '<'
    std::vector<XmlAttribute> attributes;
    std::vector<XmlElement> children;

    const XmlAttribute* find(const char* attribute) const;  // the last one of that name, null if there is none
    const char* value(const char* attribute) const;         // its value, null if there is none
};

struct Problem {
    enum Severity { Error, Warning };
    std::size_t offset;
    Severity severity;
    std::string text;
};

class XmlDocument {
  public:
    // Reads the text; syntax errors go to `problems`. At most 100 of them are told.
    XmlDocument(const std::string& text, std::vector<Problem>* problems);
    // What stands at the top of the file.
    const std::vector<XmlElement>& elements() const { return root_.children; }

  private:
    XmlElement root_;
};

// Where a byte of an attribute's value stands in the source: an entity of the source is one byte of the value.
std::size_t placeInValue(const std::string& source, const XmlAttribute& attribute, std::size_t offset);
