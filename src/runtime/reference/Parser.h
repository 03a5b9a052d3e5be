// Parser: a destructive one-pass scanner for a small fixed XML grammar, used for the reference file and for the
// replies of client programs and CIM servers. It is not a general XML parser:
//   - only the blank (0x20) separates things inside a tag, so a tag stands on one line;
//   - attribute values stand in double quotes;
//   - comments and declarations are skipped, other "<!" forms are elements to it;
//   - a document that stops right after a start tag passes.
#pragma once

#include <cstddef>

#include "foundation/HashMap.h"
#include "foundation/List.h"
#include "runtime/reference/XMLHandler.h"

class Parser {
  public:
    // The handler is not owned and may be null: the parse then only tells whether the text is well-formed.
    explicit Parser(XMLHandler* handler) : handler_(handler) {}

    // Walks a terminated text and returns true on success; on failure the handler's fatalError has been called once.
    // Writes into the text (delimiters become terminators, entities shrink), which must outlive the call.
    bool parse(char* text);

    // The offset in the text of the tag or text run being read: in a handler's call the place of its `<` (of the
    // first byte for characters), after a failure the place of the construct that failed.
    std::size_t offset() const { return static_cast<std::size_t>(mark_ - text_); }

  private:
    enum class Step { Continue, Failed };

    Step fail(const char* message);
    Step fail(const char* format, const char* arg);
    Step text(char* from, char* tag);
    Step comment();
    Step declaration();
    Step tag();
    Step bareTag(char* name, char* delimiter);
    Step selfClosing(char* name, char* delimiter);
    Step attributes(char* name, char* delimiter);
    Step attribute();
    Step finish(char* name, bool closed, HashMap* attributes);

    XMLHandler* handler_;
    List stack_;  // names of the open elements, pointers into the text
    HashMap attributes_;
    char* text_ = nullptr;
    char* end_ = nullptr;
    char* cur_ = nullptr;
    char* mark_ = nullptr;
};

// What a tag without attributes delivers; never written.
extern HashMap& EMPTY_ATTRS;

// Replaces entities in place: lt, gt, amp, quot, apos, #N and #xN (one byte, the low eight bits of the number). An
// '&' with no ';' behind it stays. 1 on success; 0 after reporting to the handler, if there is one.
int replaceEntities(XMLHandler* handler, char* text);
