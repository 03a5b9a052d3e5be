#include "collection/expression/ExpressionParser.h"

#include <algorithm>
#include <charconv>

#include "collection/expression/ExpressionScanner.h"
#include "foundation/Trace.h"

namespace {

constexpr std::size_t kFirstDepth = 200;
constexpr int kDeepest = 10000;

// What waits for the operand that is being read.
struct Pending {
    enum Kind { Operator, Negate, Parenthesis, Call } kind;
    ExpressionToken op;     // of an operator
    std::string_view name;  // of a call
    int offset;
    int arguments;          // of a call, complete ones
    int entries;            // of the parse stack below
};

int precedence(ExpressionToken op) { return op == TOKEN_ADD || op == TOKEN_MIN ? 1 : 2; }

std::unique_ptr<Expression> makeBinary(ExpressionToken op) {
    switch (op) {
        case TOKEN_ADD: return std::make_unique<AddExpression>();
        case TOKEN_MIN: return std::make_unique<SubtractExpression>();
        case TOKEN_MULT: return std::make_unique<MultiplyExpression>();
        case TOKEN_DIV: return std::make_unique<DivideExpression>();
        default: return std::make_unique<PercentageExpression>();
    }
}

class ExpressionParser {
  public:
    explicit ExpressionParser(const char* formula) : scanner_(formula) { pending_.reserve(kFirstDepth); }

    ParsedFormula parse() {
        advance();
        while (parsed_.message.empty() && !done_) {
            if (wantsOperand_) {
                readOperand();
            } else {
                readBehindOperand();
            }
        }
        if (parsed_.message.empty()) parsed_.tree = std::make_unique<ExpressionTree>(std::move(nodes_), deepestValues_);
        parsed_.stopOffset = token_.offset;
        parsed_.expressionColumn = scanner_.column();
        return std::move(parsed_);
    }

  private:
    void advance() {
        TRACE_MESSAGES();
        token_ = scanner_.next();
        trace_detail("Next token is %d (%.*s)", static_cast<int>(token_.kind), static_cast<int>(token_.text.size()),
                     token_.text.data() ? token_.text.data() : "");
    }

    void fail(const char* message) { parsed_.message = message; }

    // One more entry on the parse stack, which counts every symbol that is not reduced yet.
    bool shift() {
        if (++entries_ <= kDeepest) return true;
        fail("parser stack overflow");
        return false;
    }

    void add(std::unique_ptr<Expression> node, int values) {
        nodes_.push_back(std::move(node));
        values_ += values;
        deepestValues_ = std::max(deepestValues_, values_);
    }

    void open(Pending::Kind kind, std::string_view name, int offset, int entriesBelow) {
        if (!shift()) return;
        pending_.push_back({kind, TOKEN_END, name, offset, 0, entriesBelow});
        wantsOperand_ = true;
        advance();
    }

    void readOperand() {
        const ScannedToken token = token_;
        if (token.kind == TOKEN_MIN) return open(Pending::Negate, {}, token.offset, entries_);
        if (token.is('(')) return open(Pending::Parenthesis, {}, token.offset, entries_);
        if (token.kind < TOKEN_IDENTIFIER || token.kind > TOKEN_STRING) return fail("parse error");
        if (!shift()) return;
        if (token.kind == TOKEN_IDENTIFIER) {
            advance();
            if (token_.is('(')) return open(Pending::Call, token.text, token.offset, entries_ - 1);
            add(std::make_unique<AttributeExpression>(token.text, token.offset), 1);
        } else {
            add(makeLiteral(token), 1);
            advance();
        }
        wantsOperand_ = false;
    }

    static std::unique_ptr<Expression> makeLiteral(const ScannedToken& token) {
        if (token.kind == TOKEN_STRING) return std::make_unique<StringExpression>(token.text);
        if (token.kind == TOKEN_NUMBER) return std::make_unique<NumberExpression>(std::string(token.text).c_str());
        double value = 0.0;
        const char* const end = token.text.data() + token.text.size();
        // What a double cannot hold is infinite, or 0, as strtod has it.
        if (std::from_chars(token.text.data(), end, value).ec == std::errc::result_out_of_range) {
            value = std::strtod(std::string(token.text).c_str(), nullptr);
        }
        return std::make_unique<NumberExpression>(value);
    }

    // Builds the operators that wait with at least this precedence, down to the innermost open bracket.
    void reduce(int least) {
        while (!pending_.empty()) {
            const Pending& p = pending_.back();
            if (p.kind == Pending::Negate) {
                add(std::make_unique<NegateExpression>(), 0);
            } else if (p.kind == Pending::Operator && precedence(p.op) >= least) {
                add(makeBinary(p.op), -1);
            } else {
                return;
            }
            entries_ = p.entries + 1;
            pending_.pop_back();
        }
    }

    void readBehindOperand() {
        if (token_.kind >= TOKEN_ADD && token_.kind <= TOKEN_PERC) return readOperator();
        reduce(0);
        Pending* bracket = pending_.empty() ? nullptr : &pending_.back();
        if (!bracket) {
            done_ = token_.kind == TOKEN_END;
            if (!done_) fail("parse error, expecting `$'");
        } else if (token_.is(')')) {
            close(*bracket);
        } else if (bracket->kind == Pending::Parenthesis) {
            fail("parse error");
        } else if (token_.is(',')) {
            if (!shift()) return;
            ++bracket->arguments;
            wantsOperand_ = true;
            advance();
        } else {
            fail("parse error, expecting `)'");
        }
    }

    void readOperator() {
        reduce(precedence(token_.kind));
        const int below = entries_ - 1;  // without the left operand
        if (!shift()) return;
        pending_.push_back({Pending::Operator, token_.kind, {}, token_.offset, 0, below});
        wantsOperand_ = true;
        advance();
    }

    void close(const Pending& bracket) {
        if (!shift()) return;
        if (bracket.kind == Pending::Call) {
            const int arguments = bracket.arguments + 1;
            add(std::make_unique<FunctionExpression>(bracket.name, arguments, bracket.offset), 1 - arguments);
        }
        entries_ = bracket.entries + 1;
        pending_.pop_back();
        advance();
    }

    ExpressionScanner scanner_;
    ScannedToken token_;
    ParsedFormula parsed_;
    std::vector<Pending> pending_;
    ExpressionTree::Nodes nodes_;
    int entries_ = 1;  // the start
    int values_ = 0;
    int deepestValues_ = 0;
    bool wantsOperand_ = true;
    bool done_ = false;
};

}  // namespace

ParsedFormula parseFormula(const char* formula) { return ExpressionParser(formula).parse(); }

std::string caretLine(const ParsedFormula& parsed) {
    return std::string(static_cast<std::size_t>(std::max(parsed.expressionColumn - 1, 0)), ' ') + "^";
}
