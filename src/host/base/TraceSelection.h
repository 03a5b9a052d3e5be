// Which trace classes are on for which functions, parsed from the text of ZSB_ZTR1.
//
//   selection = item { blanks item }
//   item      = class | "(UNIT:" name { blanks class } ")"
//   class     = "ERROR" | "FLOW" | "STATE" | "DETAIL" | "ALL" | "NONE"
//
// A class outside brackets holds for every function; without any, ERROR does. A bracketed item adds its
// classes for the functions it names: all functions of a file whose base name begins with `name` (upper and
// lower case alike, with or without the extension), or the function of exactly that name. Items work from
// left to right; NONE takes away what came before it for the same functions. Key words may be in either case.
#pragma once

#include <string>
#include <vector>

namespace almanac::host {

class TraceSelection {
  public:
    TraceSelection();

    // The empty selection is ERROR for everything. False for a text outside the grammar; `out` is unchanged
    // then and `error` (null allowed) says what is wrong.
    static bool parse(const std::string& text, TraceSelection* out, std::string* error);

    // The ZTR1_Class bits that are on for a function of a file (any path).
    unsigned maskFor(const char* file, const char* function) const;

    const std::string& text() const { return text_; }

  private:
    struct Unit {
        std::string name;
        unsigned add = 0;
        bool clear = false;  // a NONE before the classes in `add`
    };

    std::string text_;
    unsigned general_;
    std::vector<Unit> units_;
};

}  // namespace almanac::host
