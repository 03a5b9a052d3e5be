#include "host/base/TomlFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <toml.hpp>

#include "host/base/Descriptor.h"
#include "host/base/Utf8.h"

namespace almanac::host {
namespace {

// Comments are not wanted here, and sorted tables make the outcome the same for the same file.
using Value = toml::basic_value<toml::discard_comments, std::map, std::vector>;

TomlRead broken(std::string* error, const std::string& text) {
    if (error) *error = text;
    return TomlRead::Broken;
}

std::string placeOf(unsigned line, unsigned column) {
    return ":" + std::to_string(line) + ":" + std::to_string(column);
}

// The parser descends once for each bracket, so their depth is bounded before it sees the text. This lexer
// knows no more than where texts and comments begin and end.
class DepthCheck {
  public:
    explicit DepthCheck(const std::string& text) : text_(text) {}

    // The offset of the bracket that is one too deep, or npos.
    std::size_t run() {
        int depth = 0;
        int dots = 0;  // dotted keys nest tables as brackets do
        for (at_ = 0; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == '"' || c == '\'') {
                skipText(c);
            } else if (c == '#') {
                at_ = std::min(text_.find('\n', at_), text_.size());
                dots = 0;
            } else if (c == '\n') {
                dots = 0;
            } else if (c == '[' || c == '{') {
                ++depth;
            } else if (c == ']' || c == '}') {
                depth = std::max(depth - 1, 0);
            } else if (c == '.') {
                ++dots;
            }
            if (depth > kTomlDepthLimit || dots > kTomlDotsLimit) return at_;
        }
        return std::string::npos;
    }

  private:
    static constexpr int kTomlDotsLimit = 1024;  // on one line, decimal points included

    // Leaves at_ on the last byte of the text that begins at at_.
    void skipText(char quote) {
        const std::string triple(3, quote);
        if (text_.compare(at_, 3, triple) == 0) {
            at_ += 3;
            for (; at_ < text_.size() && text_.compare(at_, 3, triple) != 0; ++at_) {
                if (quote == '"' && text_[at_] == '\\') ++at_;
            }
            at_ += 2;
            return;
        }
        for (++at_; at_ < text_.size() && text_[at_] != quote && text_[at_] != '\n'; ++at_) {
            if (quote == '"' && text_[at_] == '\\') ++at_;
        }
    }

    const std::string& text_;
    std::size_t at_ = 0;
};

std::string placeIn(const std::string& text, std::size_t offset) {
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(offset);
    const auto line = static_cast<unsigned>(std::count(text.begin(), end, '\n')) + 1;
    const std::size_t start = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
    return placeOf(line, static_cast<unsigned>(offset - (start == std::string::npos ? 0 : start + 1)) + 1);
}

// The offset of the first byte that no TOML text has: malformed UTF-8 (which the parser library must never
// see: it reads beyond its buffer then) or a control byte.
std::size_t wrongByte(const std::string& text) {
    const auto isControl = [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
    };
    const auto control = std::find_if(text.begin(), text.end(), isControl);
    const std::size_t wrong =
        std::min(validUtf8Prefix(text), static_cast<std::size_t>(std::distance(text.begin(), control)));
    return wrong == text.size() ? std::string::npos : wrong;
}

// The offset of the first line that is too long, or npos.
std::size_t longLine(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end - at > kTomlLineLimit) return at;
        at = end + 1;
    }
    return std::string::npos;
}

// A decimal integer keeps its digits, so that one beyond 64 bits is not changed by reading it.
std::string integerText(std::string source, std::int64_t value) {
    std::erase(source, '_');
    if (source.rfind('+', 0) == 0) source.erase(0, 1);
    const bool decimal = !source.empty() && source.find_first_not_of("0123456789", 1) == std::string::npos;
    return decimal ? source : std::to_string(value);
}

class Conversion {
  public:
    TomlValue convert(const Value& from) {
        TomlValue to;
        switch (from.type()) {
            case toml::value_t::table:
                to.kind = TomlValue::Kind::Table;
                for (const auto& [name, value] : from.as_table()) to.members.emplace(name, convert(value));
                break;
            case toml::value_t::array:
                to.kind = TomlValue::Kind::Array;
                for (const auto& value : from.as_array()) to.items.push_back(convert(value));
                if (to.items.empty() || to.items.front().kind != TomlValue::Kind::Table) setPlace(from, &to);
                break;
            case toml::value_t::string:
                to.kind = TomlValue::Kind::Text;
                to.text = from.as_string().str;
                break;
            case toml::value_t::integer:
                to.kind = TomlValue::Kind::Integer;
                to.text = integerText(toml::detail::get_region(from)->str(), from.as_integer());
                break;
            case toml::value_t::floating:
                to.kind = TomlValue::Kind::Real;
                to.text = toml::detail::get_region(from)->str();
                std::erase(to.text, '_');
                break;
            case toml::value_t::boolean:
                to.kind = TomlValue::Kind::Boolean;
                to.text = from.as_boolean() ? "true" : "false";
                break;
            default:
                setPlace(from, &to);
                break;
        }
        return to;
    }

  private:
    // Finding a place walks the whole file before it, so only one is found.
    void setPlace(const Value& from, TomlValue* to) {
        if (placed_) return;
        placed_ = true;
        to->line = from.location().line();
        to->column = from.location().column();
    }

    bool placed_ = false;
};

// The first line of the parser's message, without its own names.
std::string shortMessage(const char* what) {
    std::string text(what);
    text = text.substr(0, text.find('\n'));
    if (text.rfind("[error] ", 0) == 0) text.erase(0, 8);
    if (text.rfind("toml::", 0) == 0) {
        const std::size_t colon = text.find(": ");
        const std::size_t blank = text.find(' ');
        text.erase(0, colon == std::string::npos ? (blank == std::string::npos ? 6 : blank + 1) : colon + 2);
    }
    return text.empty() ? "syntax error" : text;
}

}  // namespace

const TomlValue* TomlValue::member(const std::string& name) const {
    const auto found = members.find(name);
    return found == members.end() ? nullptr : &found->second;
}

std::string TomlValue::place() const { return line == 0 ? "" : placeOf(line, column); }

TomlRead readTextFile(const std::string& path, std::string* out, std::string* error) {
    // Not blocking, so that a FIFO in the file's place cannot hold the reader.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0) {
        if (errno == ENOENT) return TomlRead::Missing;
        return broken(error, path + ": " + std::strerror(errno));
    }
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return broken(error, path + ": no regular file");
    out->clear();
    char buffer[16 * 1024];
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return broken(error, path + ": " + std::strerror(errno));
        if (count == 0) return TomlRead::Ok;
        out->append(buffer, static_cast<std::size_t>(count));
        if (out->size() > kTomlSizeLimit) {
            return broken(error, path + ": larger than " + std::to_string(kTomlSizeLimit) + " bytes");
        }
    }
}

TomlRead readTomlFile(const std::string& path, TomlValue* out, std::string* error) {
    std::string text;
    const TomlRead result = readTextFile(path, &text, error);
    if (result != TomlRead::Ok) return result;
    return parseToml(text, path, out, error) ? TomlRead::Ok : TomlRead::Broken;
}

bool parseToml(const std::string& text, const std::string& name, TomlValue* out, std::string* error) {
    try {
        if (text.size() > kTomlSizeLimit) {
            return broken(error, name + ": larger than " + std::to_string(kTomlSizeLimit) + " bytes") ==
                   TomlRead::Ok;
        }
        if (const std::size_t wrong = wrongByte(text); wrong != std::string::npos) {
            broken(error, name + placeIn(text, wrong) + ": no UTF-8 text");
            return false;
        }
        if (const std::size_t tooLong = longLine(text); tooLong != std::string::npos) {
            broken(error, name + placeIn(text, tooLong) + ": longer than " + std::to_string(kTomlLineLimit) +
                              " bytes");
            return false;
        }
        if (const std::size_t deep = DepthCheck(text).run(); deep != std::string::npos) {
            broken(error, name + placeIn(text, deep) + ": nested too deeply");
            return false;
        }
        std::istringstream in(text);
        *out = Conversion().convert(toml::parse<toml::discard_comments, std::map, std::vector>(in, name));
        return true;
    } catch (const toml::exception& e) {
        broken(error,
               name + placeOf(e.location().line(), e.location().column()) + ": " + shortMessage(e.what()));
    } catch (const std::exception& e) {
        broken(error, name + ": " + shortMessage(e.what()));
    } catch (...) {
        broken(error, name + ": cannot be parsed");
    }
    return false;
}

}  // namespace almanac::host
