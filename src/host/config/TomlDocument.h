// A configuration file as sections and entries over its own text: what is not changed keeps every byte,
// comments and order included. The form of the file:
//
//   instance = "name"        optional, before the first section
//   [SECTION]                a section without ID that stands alone
//   NAME = "value"
//   [[SECTION]]              one of several sections of a name; its ID, if it has one, is the entry "id"
//   id = "one"
//
// Anything else (nested tables, dotted keys, other entries before the first section) is kept and not read.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace almanac::host {

struct TomlValue;

// One line of a section's body, or the several lines of one entry.
struct TomlLine {
    std::string raw;
    std::string key;    // empty for a comment, a blank line or an entry with a dotted key
    std::string value;  // as a text; of a scalar entry
    bool scalar = false;
    unsigned line = 0;           // in the file it was read from, from 1; 0 for a new one
    std::size_t valueBegin = 0;  // offsets in `raw`
    std::size_t valueEnd = 0;
};

class TomlSection {
  public:
    const std::string& name() const { return path_.front(); }
    const std::string& id() const { return id_; }
    std::vector<std::string> entryNames() const;           // in file order, without "id"
    const TomlLine* entry(const std::string& name) const;  // null if there is none

    // False for a name or value that a file cannot hold, and for the reserved name "id".
    bool setEntry(const std::string& name, const std::string& value);
    // An empty ID takes the entry away. False as above.
    bool setID(const std::string& id);

  private:
    friend class TomlDocument;

    bool hasEntriesOf(const TomlSection& other) const;  // the same names and values in the same order
    TomlLine* findLine(const std::string& name);
    void setLine(const std::string& name, const std::string& value, std::size_t newPlace);
    std::size_t endOfEntries() const;
    void setDoubleBrackets();

    std::vector<std::string> path_;  // the header's key; a section has one part, a nested table several
    bool many_ = false;              // written [[...]]
    bool fresh_ = false;             // not in the file yet
    bool crlf_ = false;
    unsigned line_ = 0;
    std::string id_;
    std::string lead_;    // the comment right above the header
    std::string header_;  // the header's line
    std::vector<TomlLine> lines_;
};

class TomlDocument {
  public:
    // Reads a text; `name` stands for the file in the error line "file:line:column: ...". Never throws.
    bool parse(const std::string& text, const std::string& name, std::string* error);

    // The whole text. Without a change it is the text that was parsed, byte by byte.
    std::string render();

    // True if parsing `text` gives this document's sections, IDs, entries and values.
    bool readsBackFrom(const std::string& text, std::string* error) const;

    const std::string& instance() const { return instance_; }
    // The sections in file order. The pointers stay valid as long as the document, even when removed.
    std::vector<TomlSection*> sections() const;

    // Appends a section without ID. Null for a name that a file cannot hold.
    TomlSection* addSection(const std::string& name);
    // Removes the first section of that name and ID with its own comment and nested tables.
    bool removeSection(const std::string& name, const std::string& id);

  private:
    bool scan(const std::string& text, const std::string& name, std::string* error);
    bool scanHeader(const std::string& text, std::size_t at, std::size_t content);
    bool scanEntry(const std::string& text, std::size_t* at, std::size_t content);
    bool join(const TomlValue& root, const std::string& name, std::string* error);
    static bool joinSection(const TomlValue& table, TomlSection* section, const std::string& name,
                            std::string* error);
    static bool hasEveryScalar(const TomlValue& table, const TomlSection& section);
    TomlSection* newBlock();

    std::string instance_;
    bool crlf_ = false;
    unsigned scanLine_ = 0;
    std::vector<std::unique_ptr<TomlSection>> blocks_;   // the first is what stands before any header
    std::vector<std::unique_ptr<TomlSection>> removed_;  // kept for those who still point to them
};

}  // namespace almanac::host
