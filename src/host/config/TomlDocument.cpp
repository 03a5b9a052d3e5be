#include "host/config/TomlDocument.h"

#include <algorithm>
#include <map>
#include <set>

#include "host/base/TomlFile.h"
#include "host/config/TomlLexer.h"

namespace almanac::host {
namespace {

constexpr const char* kIdKey = "id";

bool isBlankLine(const std::string& raw) { return raw.find_first_not_of(" \t\r\n") == std::string::npos; }

bool isPlainNumber(const std::string& text) {
    const std::size_t digits = text.rfind('-', 0) == 0 ? 1 : 0;
    const std::size_t count = text.size() - digits;
    return count > 0 && count <= 18 && text.find_first_not_of("0123456789", digits) == std::string::npos &&
           (text[digits] != '0' || text == "0");
}

// A new value keeps the form of the old one where it can: a number stays a number.
std::string writtenLike(const std::string& old, const std::string& value) {
    const bool bare = !old.empty() && old.front() != '"' && old.front() != '\'';
    if (bare && isPlainNumber(value) && isPlainNumber(old)) return value;
    if (bare && (value == "true" || value == "false") && (old == "true" || old == "false")) return value;
    return writtenText(value);
}

bool fail(std::string* error, const std::string& name, unsigned line, const std::string& what) {
    if (error) *error = name + ":" + std::to_string(line) + ":1: " + what;
    return false;
}

bool holdsControlByte(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool usableName(const std::string& name) {
    return !name.empty() && !holdsControlByte(name) && isPlainText(name);
}

}  // namespace

// ---- one section ----

std::vector<std::string> TomlSection::entryNames() const {
    std::vector<std::string> names;
    for (const TomlLine& line : lines_) {
        if (!line.key.empty() && line.key != kIdKey) names.push_back(line.key);
    }
    return names;
}

const TomlLine* TomlSection::entry(const std::string& name) const {
    if (name == kIdKey || name.empty()) return nullptr;
    return const_cast<TomlSection*>(this)->findLine(name);
}

bool TomlSection::hasEntriesOf(const TomlSection& other) const {
    const auto next = [](const std::vector<TomlLine>& lines, std::size_t* at) -> const TomlLine* {
        while (*at < lines.size() && (lines[*at].key.empty() || lines[*at].key == kIdKey)) ++*at;
        return *at < lines.size() ? &lines[(*at)++] : nullptr;
    };
    std::size_t i = 0;
    std::size_t k = 0;
    for (;;) {
        const TomlLine* const mine = next(lines_, &i);
        const TomlLine* const theirs = next(other.lines_, &k);
        if (!mine || !theirs) return mine == theirs;
        if (mine->key != theirs->key || mine->scalar != theirs->scalar || mine->value != theirs->value)
            return false;
    }
}

TomlLine* TomlSection::findLine(const std::string& name) {
    const auto found =
        std::find_if(lines_.begin(), lines_.end(), [&](const TomlLine& line) { return line.key == name; });
    return found == lines_.end() ? nullptr : &*found;
}

// Behind the last entry, so that comments and blank lines below it stay below.
std::size_t TomlSection::endOfEntries() const {
    std::size_t end = 0;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].valueEnd > 0) end = i + 1;
    }
    return end;
}

void TomlSection::setLine(const std::string& name, const std::string& value, std::size_t newPlace) {
    if (TomlLine* const line = findLine(name)) {
        if (line->scalar && line->value == value) return;
        const std::string old = line->raw.substr(line->valueBegin, line->valueEnd - line->valueBegin);
        const std::string written = writtenLike(old, value);
        line->raw.replace(line->valueBegin, old.size(), written);
        line->valueEnd = line->valueBegin + written.size();
        line->value = value;
        line->scalar = true;
        return;
    }
    const char* const lineEnd = crlf_ ? "\r\n" : "\n";
    std::string& before = newPlace == 0 ? header_ : lines_[newPlace - 1].raw;
    if (!before.empty() && before.back() != '\n') before += lineEnd;  // the file's last line may lack its end
    TomlLine line;
    line.key = name;
    line.value = value;
    line.scalar = true;
    line.raw = writtenKey(name) + " = ";
    line.valueBegin = line.raw.size();
    line.raw += writtenText(value);
    line.valueEnd = line.raw.size();
    line.raw += lineEnd;
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(newPlace), std::move(line));
}

bool TomlSection::setEntry(const std::string& name, const std::string& value) {
    if (!usableName(name) || name == kIdKey || !isPlainText(value)) return false;
    setLine(name, value, endOfEntries());
    return true;
}

bool TomlSection::setID(const std::string& id) {
    if (!isPlainText(id)) return false;
    id_ = id;
    if (!id.empty()) {
        setLine(kIdKey, id, 0);
        if (fresh_) setDoubleBrackets();
        return true;
    }
    std::erase_if(lines_, [](const TomlLine& line) { return line.key == kIdKey; });
    return true;
}

void TomlSection::setDoubleBrackets() {
    if (many_) return;
    std::size_t open = header_.find('[');
    std::size_t close = open + 1;
    std::vector<std::string> ignored;
    if (open == std::string::npos || !readKey(header_, &close, &ignored)) return;
    header_.insert(close, "]");
    header_.insert(open, "[");
    many_ = true;
}

// ---- reading ----

bool TomlDocument::parse(const std::string& text, const std::string& name, std::string* error) {
    try {
        TomlValue root;
        return parseToml(text, name, &root, error) && scan(text, name, error) && join(root, name, error);
    } catch (...) {
        if (error) *error = name + ": out of memory";
        return false;
    }
}

TomlSection* TomlDocument::newBlock() {
    blocks_.push_back(std::make_unique<TomlSection>());
    blocks_.back()->crlf_ = crlf_;
    return blocks_.back().get();
}

bool TomlDocument::scan(const std::string& text, const std::string& name, std::string* error) {
    const std::size_t firstEnd = text.find('\n');
    crlf_ = firstEnd != std::string::npos && firstEnd > 0 && text[firstEnd - 1] == '\r';
    blocks_.clear();
    newBlock();
    scanLine_ = 1;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        const bool mark = at == 0 && text.compare(0, 3, "\xEF\xBB\xBF") == 0;
        const std::size_t content = skipBlanks(text, mark ? 3 : at);
        const char first = content < text.size() ? text[content] : '\n';
        bool understood = true;
        if (first == '#' || first == '\n' || first == '\r') {
            at = nextLine(text, content);
            TomlLine line;
            line.raw = text.substr(begin, at - begin);
            blocks_.back()->lines_.push_back(std::move(line));
        } else if (first == '[') {
            understood = scanHeader(text, at, content);
            at = nextLine(text, content);
        } else {
            understood = scanEntry(text, &at, content);
        }
        if (!understood) return fail(error, name, scanLine_, "this line is not understood");
        scanLine_ += static_cast<unsigned>(std::count(text.begin() + static_cast<std::ptrdiff_t>(begin),
                                                      text.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
    }
    return true;
}

bool TomlDocument::scanHeader(const std::string& text, std::size_t at, std::size_t content) {
    const bool many = text.compare(content, 2, "[[") == 0;
    std::size_t key = content + (many ? 2 : 1);
    std::vector<std::string> path;
    if (!readKey(text, &key, &path) || key >= text.size() || text[key] != ']') return false;
    // A comment that touches the header from above belongs to it.
    std::vector<TomlLine>& above = blocks_.back()->lines_;
    std::size_t first = above.size();
    while (first > 0 && above[first - 1].valueEnd == 0 && !isBlankLine(above[first - 1].raw)) --first;
    std::string lead;
    for (std::size_t i = first; i < above.size(); ++i) lead += above[i].raw;
    above.resize(first);
    TomlSection* const block = newBlock();
    block->path_ = std::move(path);
    block->many_ = many;
    block->line_ = scanLine_;
    block->lead_ = std::move(lead);
    block->header_ = text.substr(at, nextLine(text, content) - at);
    return true;
}

bool TomlDocument::scanEntry(const std::string& text, std::size_t* at, std::size_t content) {
    const std::size_t begin = *at;
    std::size_t place = content;
    std::vector<std::string> parts;
    if (!readKey(text, &place, &parts) || place >= text.size() || text[place] != '=') return false;
    const std::size_t value = skipBlanks(text, place + 1);
    const std::size_t end = valueEnd(text, value);
    if (end == std::string::npos) return false;
    const std::size_t tail = skipBlanks(text, end);
    if (tail < text.size() && text[tail] != '#' && text[tail] != '\r' && text[tail] != '\n') return false;
    *at = nextLine(text, tail);
    TomlLine line;
    line.raw = text.substr(begin, *at - begin);
    line.key = parts.size() == 1 ? parts.front() : "";
    line.line = scanLine_;
    line.valueBegin = value - begin;
    line.valueEnd = end - begin;
    blocks_.back()->lines_.push_back(std::move(line));
    return true;
}

// Gives the entries their values, and makes sure that the lines were understood as the parser understands
// them.
bool TomlDocument::join(const TomlValue& root, const std::string& name, std::string* error) {
    const TomlValue* const instance = root.member("instance");
    if (instance && !instance->isScalar() && blocks_.front()->findLine("instance")) {
        return fail(error, name, blocks_.front()->findLine("instance")->line, "instance must be a text");
    }
    instance_ = instance && instance->isScalar() ? instance->text : "";
    std::map<std::string, std::size_t> seen;
    for (std::size_t i = 1; i < blocks_.size(); ++i) {
        TomlSection* const section = blocks_[i].get();
        if (section->path_.size() != 1) continue;
        const TomlValue* table = root.member(section->name());
        if (table && section->many_) {
            const std::size_t index = seen[section->name()]++;
            table = index < table->items.size() ? &table->items[index] : nullptr;
        }
        if (!table || table->kind != TomlValue::Kind::Table) {
            return fail(error, name, section->line_, "this section is not understood");
        }
        if (!joinSection(*table, section, name, error)) return false;
    }
    for (const auto& [section, count] : seen) {
        if (root.member(section)->items.size() == count) continue;
        return fail(error, name, 1, "section " + section + " is not understood: it is also given as a value");
    }
    return hasEveryScalar(root, *blocks_.front()) ||
           fail(error, name, 1, "the entries here are not understood");
}

// The other direction: the parser knows no value that the lines do not show.
bool TomlDocument::hasEveryScalar(const TomlValue& table, const TomlSection& section) {
    std::set<std::string> keys;
    for (const TomlLine& line : section.lines_) keys.insert(line.key);
    return std::all_of(table.members.begin(), table.members.end(), [&](const auto& member) {
        return !member.second.isScalar() || keys.count(member.first) > 0;
    });
}

bool TomlDocument::joinSection(const TomlValue& table, TomlSection* section, const std::string& name,
                               std::string* error) {
    for (TomlLine& line : section->lines_) {
        if (line.key.empty()) continue;
        const TomlValue* const value = table.member(line.key);
        if (!value) return fail(error, name, line.line, "this entry is not understood");
        line.scalar = value->isScalar();
        line.value = value->text;
        if (line.key != kIdKey) continue;
        if (!line.scalar) return fail(error, name, line.line, "id must be a text or a number");
        section->id_ = line.value;
    }
    return hasEveryScalar(table, *section) ||
           fail(error, name, section->line_, "this section is not understood");
}

// ---- changing and writing ----

std::vector<TomlSection*> TomlDocument::sections() const {
    std::vector<TomlSection*> list;
    for (const auto& block : blocks_) {
        if (block->path_.size() == 1) list.push_back(block.get());
    }
    return list;
}

TomlSection* TomlDocument::addSection(const std::string& name) {
    if (!usableName(name)) return nullptr;
    if (blocks_.empty()) newBlock();
    TomlSection* const section = newBlock();
    section->path_ = {name};
    section->fresh_ = true;
    section->header_ = "[" + writtenKey(name) + "]" + (crlf_ ? "\r\n" : "\n");
    return section;
}

bool TomlDocument::removeSection(const std::string& name, const std::string& id) {
    const auto found = std::find_if(blocks_.begin(), blocks_.end(), [&](const auto& block) {
        return block->path_.size() == 1 && block->name() == name && block->id() == id;
    });
    if (found == blocks_.end()) return false;
    // Nested tables of the name belong to this section until its next one.
    auto last = found + 1;
    std::vector<std::unique_ptr<TomlSection>> kept;
    for (; last != blocks_.end(); ++last) {
        if ((*last)->path_.size() == 1 && (*last)->name() == name) break;
        auto& target = (*last)->path_.front() == name ? removed_ : kept;
        target.push_back(std::move(*last));
    }
    removed_.push_back(std::move(*found));
    const auto place = blocks_.erase(found, last);
    blocks_.insert(place, std::make_move_iterator(kept.begin()), std::make_move_iterator(kept.end()));
    return true;
}

std::string TomlDocument::render() {
    // Sections that share a name have to be written with double brackets.
    std::map<std::string, int> count;
    for (const TomlSection* section : sections()) ++count[section->name()];
    for (TomlSection* section : sections()) {
        if (count[section->name()] > 1) section->setDoubleBrackets();
    }
    const char* const lineEnd = crlf_ ? "\r\n" : "\n";
    std::string text;
    for (const auto& block : blocks_) {
        if (block->fresh_ && !text.empty()) {
            if (text.back() != '\n') text += lineEnd;
            if (!text.ends_with(std::string("\n") + lineEnd))
                text += lineEnd;  // a blank line above a new section
        } else if (!block->header_.empty() && !text.empty() && text.back() != '\n') {
            text += lineEnd;
        }
        text += block->lead_ + block->header_;
        for (const TomlLine& line : block->lines_) text += line.raw;
    }
    return text;
}

bool TomlDocument::readsBackFrom(const std::string& text, std::string* error) const {
    TomlDocument other;
    if (!other.parse(text, "changed text", error)) return false;
    const std::vector<TomlSection*> mine = sections();
    const std::vector<TomlSection*> theirs = other.sections();
    bool same = mine.size() == theirs.size() && instance_ == other.instance_;
    for (std::size_t i = 0; same && i < mine.size(); ++i) {
        const TomlSection& a = *mine[i];
        const TomlSection& b = *theirs[i];
        same = a.name() == b.name() && a.id() == b.id() && a.hasEntriesOf(b);
    }
    if (!same && error) *error = "the changed text does not read back as it was meant";
    return same;
}

}  // namespace almanac::host
