#include "runtime/reference/Parser.h"

#include <cstdlib>
#include <cstring>

HashMap& EMPTY_ATTRS = *new HashMap(1);

namespace {

// The byte an entity stands for, or -1.
int entityByte(const char* name) {
    static constexpr struct {
        const char* name;
        char byte;
    } kNamed[] = {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& e : kNamed) {
        if (std::strcmp(name, e.name) == 0) return static_cast<unsigned char>(e.byte);
    }
    if (name[0] != '#' || name[1] == '\0') return -1;
    const unsigned long number =
        name[1] == 'x' ? std::strtoul(name + 2, nullptr, 16) : static_cast<unsigned long>(std::strtol(name + 1, nullptr, 10));
    return static_cast<int>(number & 0xFF);
}

}  // namespace

int replaceEntities(XMLHandler* handler, char* text) {
    char* read = std::strchr(text, '&');
    if (!read) return 1;
    char* write = read;
    char* const end = read + std::strlen(read);
    while (read < end) {
        char* semicolon = *read == '&' ? static_cast<char*>(std::memchr(read, ';', static_cast<std::size_t>(end - read))) : nullptr;
        if (!semicolon) {
            if (*read == '&') {  // no ';' in all the rest: no entity any more
                std::memmove(write, read, static_cast<std::size_t>(end - read));
                write += end - read;
                break;
            }
            *write++ = *read++;
            continue;
        }
        *semicolon = '\0';
        const char* name = read + 1;
        if (*name == '\0') {
            if (handler) handler->fatalError("Entity name cannot be empty");
            return 0;
        }
        const int byte = entityByte(name);
        if (byte < 0) {
            if (handler) handler->fatalError("Unrecognized entity: %s", name);
            return 0;
        }
        *write++ = static_cast<char>(byte);
        read = semicolon + 1;
    }
    *write = '\0';
    return 1;
}

Parser::Step Parser::fail(const char* message) {
    if (handler_) handler_->fatalError(message);
    return Step::Failed;
}

Parser::Step Parser::fail(const char* format, const char* arg) {
    if (handler_) handler_->fatalError(format, arg);
    return Step::Failed;
}

bool Parser::parse(char* text) {
    text_ = cur_ = mark_ = text;
    end_ = text + std::strlen(text);
    stack_.clear();
    Step step = Step::Continue;
    while (step == Step::Continue && cur_ < end_) {
        mark_ = cur_;
        char* open = static_cast<char*>(std::memchr(cur_, '<', static_cast<std::size_t>(end_ - cur_)));
        if (!open) {
            if (stack_.getCount() > 0) {
                step = fail("Missing end tag for element: %s", static_cast<const char*>(stack_.peek()));
            }
            break;
        }
        if (open > cur_ && handler_) step = this->text(cur_, open);
        if (step == Step::Failed) break;
        mark_ = open;
        cur_ = open + 1;
        if (end_ - cur_ >= 3 && std::memcmp(cur_, "!--", 3) == 0) {
            step = comment();
        } else if (*cur_ == '?') {
            step = declaration();
        } else {
            step = tag();
            attributes_.clear();
        }
    }
    stack_.clear();
    return step == Step::Continue;
}

Parser::Step Parser::text(char* from, char* tag) {
    *tag = '\0';
    if (!replaceEntities(handler_, from)) return Step::Failed;
    handler_->characters(from);
    return Step::Continue;
}

Parser::Step Parser::comment() {
    char* close = std::strstr(cur_ + 3, "-->");
    if (!close) return fail("Unfinished comment found");
    cur_ = close + 3;
    return Step::Continue;
}

Parser::Step Parser::declaration() {
    char* close = std::strstr(cur_ + 1, "?>");
    if (!close) return fail("Unfinished declaration found");
    cur_ = close + 2;
    return Step::Continue;
}

Parser::Step Parser::tag() {
    char* name = cur_;
    char* delimiter = name + std::strcspn(name, " />");
    if (delimiter == end_) return fail("Cannot find end of tag");
    if (delimiter == name) {  // an end tag's leading '/' gets past the search
        delimiter = name + std::strcspn(name, " >");
        if (delimiter == end_) return fail("Cannot find end of tag");
    }
    if (*delimiter == '/') return selfClosing(name, delimiter);
    if (*delimiter == '>') return bareTag(name, delimiter);
    return attributes(name, delimiter);
}

Parser::Step Parser::selfClosing(char* name, char* delimiter) {
    if (delimiter[1] != '>') return fail("Incorrect end of tag");
    *delimiter = '\0';
    cur_ = delimiter + 2;
    if (*name == '/') return fail("Self terminated tag for end tag: %s", name);
    return finish(name, true, &EMPTY_ATTRS);
}

Parser::Step Parser::bareTag(char* name, char* delimiter) {
    *delimiter = '\0';
    cur_ = delimiter + 1;
    if (*name != '/') return finish(name, false, &EMPTY_ATTRS);
    ++name;
    // Kept: the format has no place for the name.
    if (stack_.getCount() == 0) return fail("Unbalanced end tag found:");
    const char* open = static_cast<const char*>(stack_.pop());
    if (std::strcmp(open, name) != 0) {
        if (handler_) handler_->fatalError("Mismatched end tag found: %s != %s", name, open);
        return Step::Failed;
    }
    if (handler_) handler_->endElement(name);
    return Step::Continue;
}

Parser::Step Parser::finish(char* name, bool closed, HashMap* attributes) {
    if (handler_) handler_->startElement(name, attributes);
    if (!closed) {
        stack_.add(name);
    } else if (handler_) {
        handler_->endElement(name);
    }
    return Step::Continue;
}

Parser::Step Parser::attributes(char* name, char* delimiter) {
    *delimiter = '\0';
    cur_ = delimiter + 1;
    if (*name == '/') return fail("Element ending tags cannot have attributes");
    for (;;) {
        while (*cur_ == ' ') ++cur_;
        if (cur_ >= end_) return fail("Cannot find end of tag or start of attribute");
        if (*cur_ == '>') {
            ++cur_;
            return finish(name, false, &attributes_);
        }
        if (*cur_ == '/') {
            if (cur_[1] != '>') return fail("Incorrect end of tag found");
            cur_ += 2;
            return finish(name, true, &attributes_);
        }
        if (attribute() == Step::Failed) return Step::Failed;
    }
}

Parser::Step Parser::attribute() {
    char* name = cur_;
    char* equals = static_cast<char*>(std::memchr(name, '=', static_cast<std::size_t>(end_ - name)));
    if (!equals) return fail("Cannot find start of attribute value");
    *equals = '\0';
    char* value = equals + 1;
    if (*value != '"') return fail("Attribute value does not start with quote");
    ++value;
    char* close = static_cast<char*>(std::memchr(value, '"', static_cast<std::size_t>(end_ - value)));
    if (!close) return fail("Cannot find end of attribute value");
    *close = '\0';
    if (!replaceEntities(handler_, value)) return Step::Failed;
    attributes_.put(name, value);
    cur_ = close + 1;
    return Step::Continue;
}
