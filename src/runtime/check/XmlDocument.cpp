#include "runtime/check/XmlDocument.h"

#include <algorithm>
#include <cstring>

#include "runtime/reference/Parser.h"

namespace {

constexpr int kMostErrors = 100;
constexpr std::size_t kDeepest = 200;  // elements within elements; what lies deeper is left out of the tree
constexpr std::size_t npos = std::string::npos;

// The attributes of the tag at `tag` as they stand in the source, repeated ones too.
std::vector<XmlAttribute> readAttributes(const std::string& source, std::size_t tag) {
    std::vector<XmlAttribute> found;
    std::size_t at = source.find_first_of(" />", tag + 1);
    while (at != npos) {
        at = source.find_first_not_of(' ', at);
        if (at == npos || source[at] == '>' || source[at] == '/') break;
        const std::size_t equals = source.find('=', at);
        if (equals == npos || equals + 1 >= source.size() || source[equals + 1] != '"') break;
        const std::size_t close = source.find('"', equals + 2);
        if (close == npos) break;
        std::string value = source.substr(equals + 2, close - equals - 2);
        replaceEntities(nullptr, value.data());
        found.push_back({source.substr(at, equals - at), value.c_str(), at, equals + 2});
        at = close + 1;
    }
    return found;
}

// Builds the tree; keeps the first failure's message.
class TreeBuilder : public XMLHandler {
  public:
    TreeBuilder(const std::string& source, XmlElement* root) : source_(source) { open_.push_back(root); }
    void setParser(const Parser* parser) { parser_ = parser; }

    void startElement(const char* name, HashMap*) override {
        if (open_.size() > kDeepest) {
            if (tooDeep_++ == 0 && deepest == npos) deepest = parser_->offset();
            return;
        }
        XmlElement element;
        element.name = name;
        element.offset = parser_->offset();
        element.attributes = readAttributes(source_, element.offset);
        open_.back()->children.push_back(std::move(element));
        open_.push_back(&open_.back()->children.back());
    }
    void endElement(const char*) override {
        if (tooDeep_ == 0) {
            open_.pop_back();
        } else {
            --tooDeep_;
        }
    }
    void fatalError(const char* message) override {
        if (failure.empty()) failure = message;
    }
    using XMLHandler::fatalError;

    const std::vector<XmlElement*>& open() const { return open_; }
    std::string failure;
    std::size_t deepest = npos;  // the first element that is left out for its depth

  private:
    const std::string& source_;
    const Parser* parser_ = nullptr;
    std::size_t tooDeep_ = 0;  // open elements that are not in the tree
    std::vector<XmlElement*> open_;  // the root first; elements whose end has not come
};

bool startsWith(const std::string& text, const char* prefix) { return text.compare(0, std::strlen(prefix), prefix) == 0; }

void blankOut(std::string* text, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to && i < text->size(); ++i) {
        if ((*text)[i] != '\n') (*text)[i] = ' ';
    }
}

// The end of the construct at `from`: behind its '>', but not past the next '<'.
std::size_t constructEnd(const std::string& text, std::size_t from) {
    const std::size_t close = text.find('>', from + 1);
    const std::size_t next = text.find('<', from + 1);
    if (close == npos && next == npos) return text.size();
    return next < close ? next : close + 1;
}

// The '&' of the entity that failed at or behind `from`.
std::size_t badEntity(const std::string& text, std::size_t from) {
    for (std::size_t at = text.find('&', from); at != npos; at = text.find('&', at + 1)) {
        const std::size_t end = text.find(';', at);
        if (end == npos) break;
        std::string entity = text.substr(at, end - at + 1);
        if (!replaceEntities(nullptr, entity.data())) return at;
    }
    return from;
}

// What the message alone does not tell.
std::string advice(const std::string& text, std::size_t offset, const std::string& message) {
    const std::string tag = text.substr(offset, constructEnd(text, offset) - offset);
    if (startsWith(message, "Attribute value does not start with quote")) {
        return tag.find('\'') != npos ? " (values stand in double quotes)" : " (write name=\"value\")";
    }
    if (startsWith(message, "Unrecognized entity")) return " (a plain '&' is written &amp;)";
    if (startsWith(message, "Element ending tags cannot have attributes")) return " (nothing, not even a blank, follows the name)";
    return "";
}

// A failed end tag: either an inner element was never closed, or the end tag has no start.
void mendEndTag(std::string* text, std::size_t offset, const TreeBuilder& builder, std::vector<Problem>* problems) {
    const std::size_t end = constructEnd(*text, offset);
    const std::string name = text->substr(offset + 2, end - offset - 3);
    const auto& open = builder.open();
    bool openFurtherOut = false;
    for (std::size_t i = 1; i + 1 < open.size(); ++i) openFurtherOut = openFurtherOut || open[i]->name == name;
    if (openFurtherOut) {
        const XmlElement* unclosed = open.back();
        problems->push_back({unclosed->offset, Problem::Error, builder.failure + " (<" + unclosed->name + "> is not closed)"});
        const std::size_t start = unclosed->offset;
        blankOut(text, start, constructEnd(*text, start));
    } else {
        problems->push_back({offset, Problem::Error, builder.failure + (builder.failure.back() == ':' ? " " + name : "")});
        blankOut(text, offset, end);
    }
}

// Notes one syntax error and takes what failed out of the text.
void mend(std::string* text, std::size_t offset, const TreeBuilder& builder, std::vector<Problem>* problems) {
    const std::string& message = builder.failure;
    if (startsWith(message, "Mismatched end tag") || startsWith(message, "Unbalanced end tag")) {
        mendEndTag(text, offset, builder, problems);
        return;
    }
    if (startsWith(message, "Missing end tag")) {
        const XmlElement* unclosed = builder.open().back();
        const std::size_t start = unclosed->offset;
        problems->push_back({start, Problem::Error, message});
        blankOut(text, start, constructEnd(*text, start));
        return;
    }
    if (startsWith(message, "Unrecognized entity") || startsWith(message, "Entity name")) {
        const std::size_t at = badEntity(*text, offset);
        problems->push_back({at, Problem::Error, message.substr(0, 80) + advice(*text, at, message)});
        blankOut(text, at, at + 1);
        return;
    }
    problems->push_back({offset, Problem::Error, message + advice(*text, offset, message)});
    const std::size_t end = constructEnd(*text, offset);
    if (startsWith(message, "Element ending tags")) {  // what the writer meant: the end tag without the rest
        const std::size_t nameEnd = text->find(' ', offset);
        (*text)[nameEnd] = '>';
        blankOut(text, nameEnd + 1, end);
        return;
    }
    const std::size_t quote = text->find('\'', offset);
    if (startsWith(message, "Attribute value does not start") && quote < end) {
        for (std::size_t i = offset; i < end; ++i) {
            if ((*text)[i] == '\'') (*text)[i] = '"';
        }
        return;
    }
    const bool unfinished = startsWith(message, "Unfinished");
    blankOut(text, offset, unfinished ? text->size() : end);
}

}  // namespace

const XmlAttribute* XmlElement::find(const char* attribute) const {
    for (auto i = attributes.rbegin(); i != attributes.rend(); ++i) {
        if (i->name == attribute) return &*i;
    }
    return nullptr;
}

const char* XmlElement::value(const char* attribute) const {
    const XmlAttribute* found = find(attribute);
    return found ? found->value.c_str() : nullptr;
}

XmlDocument::XmlDocument(const std::string& source, std::vector<Problem>* problems) {
    std::string text = source.c_str();  // the reader stops at a zero byte
    for (int errors = 0;; ++errors) {
        root_ = XmlElement();
        TreeBuilder builder(text, &root_);
        Parser parser(&builder);
        builder.setParser(&parser);
        std::string scratch = text;
        const bool whole = parser.parse(scratch.data());
        if (whole || errors == kMostErrors) {
            if (builder.deepest != npos) problems->push_back({builder.deepest, Problem::Error, "elements nest too deep"});
            return;
        }
        mend(&text, parser.offset(), builder, problems);
    }
}

std::size_t placeInValue(const std::string& source, const XmlAttribute& attribute, std::size_t offset) {
    const std::size_t quote = std::min(source.find('"', attribute.valueOffset), source.size());
    std::size_t at = attribute.valueOffset;
    for (; offset > 0 && at < quote; --offset) {
        const std::size_t end = source[at] == '&' ? source.find(';', at) : at;
        at = (end < quote ? end : at) + 1;
    }
    return at;
}
