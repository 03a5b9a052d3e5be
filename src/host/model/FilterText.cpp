// From filter text to a Filter: a scanner, and a recursive descent parser that builds the disjunctive form as
// it goes (NOT is pushed down to the comparisons), so that no tree is kept.
#include <charconv>
#include <cstdint>

#include "host/model/Filter.h"

namespace almanac::host {
namespace {

enum class Kind { End, Name, Quoted, Text, Number, Operator, Open, Close, Comma, Bad };

struct Token {
    Kind kind = Kind::End;
    std::size_t at = 0;    // byte in the text
    std::string_view raw;  // as written
    std::string text;      // of a text or a quoted name: unescaped; of Bad: what is wrong
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || c == '%' ||
           c == '$' || c == '#' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
}

class Scanner {
  public:
    explicit Scanner(std::string_view text) : text_(text) {}

    Token next() {
        while (at_ < text_.size() && (text_[at_] == ' ' || (text_[at_] >= '\t' && text_[at_] <= '\r'))) ++at_;
        Token token;
        token.at = at_;
        if (at_ == text_.size()) return token;
        const char c = text_[at_];
        const char follow = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
        if (c == '\'' || c == '"') return quoted(token, c);
        if (isDigit(c) || ((c == '-' || c == '+') && (isDigit(follow) || follow == '.')))
            return number(token);
        if (isNameByte(c)) {
            while (at_ < text_.size() && isNameByte(text_[at_])) ++at_;
            return finish(token, Kind::Name);
        }
        ++at_;
        if (c == '(') return finish(token, Kind::Open);
        if (c == ')') return finish(token, Kind::Close);
        if (c == ',') return finish(token, Kind::Comma);
        if (c == '=' || c == '<' || c == '>' || c == '!') {
            const bool two = follow == '=' || (c == '<' && follow == '>');
            if (two) ++at_;
            if (c != '!' || two) return finish(token, Kind::Operator);
        }
        token.text = "a character that has no meaning here";
        return finish(token, Kind::Bad);
    }

  private:
    Token finish(Token& token, Kind kind) {
        token.kind = kind;
        token.raw = text_.substr(token.at, at_ - token.at);
        return std::move(token);
    }

    Token quoted(Token& token, char quote) {
        for (++at_; at_ < text_.size(); ++at_) {
            if (text_[at_] != quote) {
                token.text += text_[at_];
            } else if (at_ + 1 < text_.size() && text_[at_ + 1] == quote) {
                token.text += quote;
                ++at_;
            } else {
                ++at_;
                return finish(token, quote == '"' ? Kind::Quoted : Kind::Text);
            }
        }
        token.text = "a quote that is never closed";
        return finish(token, Kind::Bad);
    }

    Token number(Token& token) {
        ++at_;
        while (at_ < text_.size() && (isNameByte(text_[at_]))) ++at_;
        const std::string_view digits = text_.substr(token.at, at_ - token.at);
        bool point = false, any = false;
        for (std::size_t i = digits[0] == '-' || digits[0] == '+' ? 1 : 0; i < digits.size(); ++i) {
            if (digits[i] == '.' && !point)
                point = true;
            else if (isDigit(digits[i]))
                any = true;
            else
                any = false, i = digits.size();
        }
        if (any && digits.back() != '.') return finish(token, Kind::Number);
        token.text = "a number that cannot be read";
        return finish(token, Kind::Bad);
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

// The disjunctive form: each inner list is a conjunction of indexes into the parser's comparisons.
using Form = std::vector<std::vector<std::uint32_t>>;

std::size_t weight(const Form& form) {
    std::size_t sum = 0;
    for (const auto& conjunction : form) sum += conjunction.size();
    return sum;
}

class FilterParser {
  public:
    FilterParser(std::string_view text, const TableLayout& layout, FilterError* error)
        : scanner_(text), layout_(layout), error_(error) {}

    std::shared_ptr<const Filter> run() {
        advance();
        Form form;
        if (!disjunction(&form, false, 0)) return nullptr;
        if (token_.kind != Kind::End) return fail("AND, OR or the end"), nullptr;
        std::vector<FilterComparison> flat;
        std::vector<bool> ends;
        for (const auto& conjunction : form) {
            for (const std::uint32_t index : conjunction) {
                flat.push_back(comparisons_[index]);
                ends.push_back(false);
            }
            ends.back() = true;
        }
        return std::make_shared<const Filter>(std::move(flat), ends);
    }

  private:
    void advance() { token_ = scanner_.next(); }
    bool isWord(std::string_view word) const {
        return token_.kind == Kind::Name && equalsNoCase(token_.raw, word);
    }

    bool failAt(std::size_t at, std::string message) {
        error_->position = at + 1;
        error_->message = std::move(message);
        return false;
    }

    bool fail(const char* expected) {
        std::string found =
            token_.kind == Kind::End ? "the end of the filter" : "'" + std::string(token_.raw) + "'";
        if (token_.kind == Kind::Bad) found += " (" + token_.text + ")";
        return failAt(token_.at, std::string("expected ") + expected + ", found " + found);
    }

    bool unite(Form* into, Form&& other) {
        if (weight(*into) + weight(other) > Filter::kMaxComparisons) return tooMany();
        for (auto& conjunction : other) into->push_back(std::move(conjunction));
        return true;
    }

    bool multiply(Form* into, Form&& other) {
        if (weight(*into) * other.size() + weight(other) * into->size() > Filter::kMaxComparisons)
            return tooMany();
        Form product;
        for (const auto& left : *into) {
            for (const auto& right : other) {
                product.push_back(left);
                product.back().insert(product.back().end(), right.begin(), right.end());
            }
        }
        *into = std::move(product);
        return true;
    }

    bool tooMany() {
        return failAt(token_.at, "the filter comes to more than " + std::to_string(Filter::kMaxComparisons) +
                                     " comparisons");
    }

    bool disjunction(Form* form, bool negated, int depth) {
        if (!conjunction(form, negated, depth)) return false;
        while (isWord("OR")) {
            advance();
            Form other;
            if (!conjunction(&other, negated, depth)) return false;
            if (!(negated ? multiply(form, std::move(other)) : unite(form, std::move(other)))) return false;
        }
        return true;
    }

    bool conjunction(Form* form, bool negated, int depth) {
        if (!term(form, negated, depth)) return false;
        while (isWord("AND")) {
            advance();
            Form other;
            if (!term(&other, negated, depth)) return false;
            if (!(negated ? unite(form, std::move(other)) : multiply(form, std::move(other)))) return false;
        }
        return true;
    }

    bool term(Form* form, bool negated, int depth) {
        if (depth >= Filter::kMaxDepth) return failAt(token_.at, "parentheses are nested too deep");
        if (isWord("NOT")) {
            advance();
            return term(form, !negated, depth + 1);
        }
        if (token_.kind == Kind::Open) {
            advance();
            if (!disjunction(form, negated, depth + 1)) return false;
            if (token_.kind != Kind::Close) return fail("AND, OR or ')'");
            advance();
            return true;
        }
        FilterComparison comparison;
        if (!oneComparison(&comparison, negated)) return false;
        if (comparisons_.size() >= Filter::kMaxComparisons) return tooMany();
        form->push_back({static_cast<std::uint32_t>(comparisons_.size())});
        comparisons_.push_back(std::move(comparison));
        return true;
    }

    bool oneComparison(FilterComparison* c, bool negated) {
        if (token_.kind != Kind::Name && token_.kind != Kind::Quoted)
            return fail("a column name, NOT or '('");
        const Token name = token_;
        advance();
        if (name.kind == Kind::Name && token_.kind == Kind::Open) {
            if (equalsNoCase(name.raw, "SCAN")) return function(c, HBX_FN_SCAN, negated);
            if (equalsNoCase(name.raw, "SUBSTR")) return function(c, HBX_FN_SUBSTR, negated);
            if (equalsNoCase(name.raw, "PARMA")) return parameter(c, name, negated);
            return failAt(name.at, "no function has the name '" + std::string(name.raw) +
                                       "'; there are SCAN, SUBSTR and PARMA");
        }
        const Column* column = columnOf(name);
        if (!column) return false;
        c->column = column->name;
        if (token_.kind != Kind::Operator) return fail("a comparison (= != < <= > >=)");
        c->oper = operatorOf(token_.raw, negated);
        advance();
        return column->kind == ColumnKind::Text ? textValue(c, *column) : numberValue(c, *column);
    }

    const Column* columnOf(const Token& name) {
        const std::string wanted = name.kind == Kind::Quoted ? name.text : std::string(name.raw);
        const Column* column = layout_.find(wanted);
        if (column) return column;
        const std::string near = layout_.nearest(wanted);
        failAt(name.at, "table " + layout_.name + " has no column '" + wanted + "'" +
                            (near.empty() ? "" : ", did you mean '" + near + "'?"));
        return nullptr;
    }

    static _IntfOper operatorOf(std::string_view raw, bool negated) {
        if (raw == "=" || raw == "==") return negated ? INTF_NE : INTF_EQ;
        if (raw == "!=" || raw == "<>") return negated ? INTF_EQ : INTF_NE;
        if (raw == "<") return negated ? INTF_GE : INTF_LT;
        if (raw == "<=") return negated ? INTF_GT : INTF_LE;
        if (raw == ">") return negated ? INTF_LE : INTF_GT;
        return negated ? INTF_LT : INTF_GE;
    }

    bool textValue(FilterComparison* c, const Column& column) {
        if (token_.kind != Kind::Text)
            return fail(("a text in single quotes, because " + column.name + " is a text column").c_str());
        c->literal.isText = true;
        c->literal.text = token_.text;
        while (!c->literal.text.empty() && c->literal.text.back() == ' ') c->literal.text.pop_back();
        advance();
        return true;
    }

    bool numberValue(FilterComparison* c, const Column& column) {
        if (token_.kind != Kind::Number)
            return fail(("a number, because " + column.name + " is a number column").c_str());
        if (!scale(token_.raw, column.decimals, &c->literal))
            return failAt(token_.at, "the number '" + std::string(token_.raw) + "' needs more than 64 bits");
        c->wide = column.kind == ColumnKind::Int64 || c->literal.number > INT32_MAX ||
                  c->literal.number < INT32_MIN;
        advance();
        return true;
    }

    // number = floor(text * 10^decimals); between = it is not whole.
    static bool scale(std::string_view text, int decimals, FilterLiteral* out) {
        const bool negative = text[0] == '-';
        if (negative || text[0] == '+') text.remove_prefix(1);
        long long value = 0;
        bool rest = false, point = false;
        int left = decimals;
        auto digit = [&value](int d) {
            return !__builtin_mul_overflow(value, 10LL, &value) && !__builtin_add_overflow(value, d, &value);
        };
        for (const char c : text) {
            if (c == '.') {
                point = true;
            } else if (point && left == 0) {
                rest = rest || c != '0';
            } else {
                if (!digit(c - '0')) return false;
                if (point) --left;
            }
        }
        for (; left > 0; --left) {
            if (!digit(0)) return false;
        }
        out->number = negative ? -value - (rest ? 1 : 0) : value;
        out->between = rest;
        return true;
    }

    bool expect(Kind kind, const char* what) {
        if (token_.kind != kind) return fail(what);
        advance();
        return true;
    }

    bool function(FilterComparison* c, HBX_FilterFunction function, bool negated) {
        advance();
        const Token name = token_;
        if (name.kind != Kind::Name && name.kind != Kind::Quoted) return fail("a column name");
        const Column* column = columnOf(name);
        if (!column) return false;
        if (column->kind != ColumnKind::Text)
            return failAt(name.at, column->name + " is a number column; SCAN and SUBSTR look into texts");
        advance();
        if (!expect(Kind::Comma, "','")) return false;
        if (function == HBX_FN_SUBSTR && token_.kind == Kind::Number) {
            const char* end = token_.raw.data() + token_.raw.size();
            unsigned position = 0;
            const auto [stop, wrong] = std::from_chars(token_.raw.data(), end, position);
            if (wrong != std::errc() || stop != end || position == 0) return fail("a position from 1 on");
            c->literal.position = position - 1;
            advance();
            if (!expect(Kind::Comma, "','")) return false;
        }
        if (token_.kind != Kind::Text) return fail("a text in single quotes");
        c->column = column->name;
        c->oper = negated ? INTF_NE : INTF_EQ;
        c->literal.function = function;
        c->literal.isText = true;
        c->literal.text = token_.text;
        advance();
        return expect(Kind::Close, "')'");
    }

    bool parameter(FilterComparison* c, const Token& name, bool negated) {
        if (negated) return failAt(name.at, "a parameter cannot stand under NOT");
        advance();
        if (token_.kind != Kind::Text || token_.text.empty())
            return fail("the parameter's name in single quotes");
        c->column = "PARMA";
        c->parameter = token_.text;
        advance();
        if (!expect(Kind::Comma, "','")) return false;
        if (token_.kind != Kind::Text) return fail("the parameter's text in single quotes");
        c->literal.function = HBX_FN_PARMA;
        c->literal.isText = true;
        c->literal.text = token_.text;
        advance();
        return expect(Kind::Close, "')'");
    }

    Scanner scanner_;
    const TableLayout& layout_;
    FilterError* error_;
    Token token_;
    std::vector<FilterComparison> comparisons_;
};

}  // namespace

std::shared_ptr<const Filter> Filter::compile(std::string_view text, const TableLayout& layout,
                                              FilterError* error) {
    if (text.size() > kMaxText) {
        error->position = kMaxText + 1;
        error->message = "a filter may have " + std::to_string(kMaxText) + " bytes";
        return nullptr;
    }
    return FilterParser(text, layout, error).run();
}

}  // namespace almanac::host
