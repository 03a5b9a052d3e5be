#include "runtime/check/FormulaCheck.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <set>

#include "collection/expression/ExpressionFunctions.h"
#include "collection/expression/ExpressionParser.h"
#include "collection/expression/ExpressionScanner.h"
#include "runtime/check/Words.h"

namespace {

bool holds(const std::vector<const char*>& names, const std::string& name) {
    return std::any_of(names.begin(), names.end(), [&](const char* n) { return name == n; });
}

// What the parser's message alone does not tell.
std::string advice(const std::string& formula, std::size_t at, const std::string& message) {
    const char found = at < formula.size() ? formula[at] : '\0';
    const char before = at > 0 ? formula[at - 1] : '\0';
    const bool digitBefore = before >= '0' && before <= '9';
    if (message == "parser stack overflow") return " (it nests too deep)";
    if (found == '\0') return " (the formula ends too early)";
    if (found == '\'') return " (texts stand in double quotes, written &quot; in the file)";
    if (found == '"') return " (the text is not closed)";
    if (found == ')' && before == '(') return " (a function takes at least one argument, such as count(0))";
    if (found == '.') return " (a decimal number has digits on both sides of its point)";
    if (digitBefore && (found == 'e' || found == 'E')) return " (write 1.0e5 for 1e5)";
    if (message.find("`$'") != std::string::npos) return " (the formula could end here)";
    return "";
}

enum class Result { Unknown, Number, Text, List };

// As far as the root alone tells.
Result resultOf(const Expression& root) {
    if (dynamic_cast<const StringExpression*>(&root)) return Result::Text;
    if (dynamic_cast<const NumberExpression*>(&root) || dynamic_cast<const DivideExpression*>(&root)) return Result::Number;
    const auto* function = dynamic_cast<const FunctionExpression*>(&root);
    if (!function || !function->entry()) return Result::Unknown;
    switch (function->entry()->gives) {
        case FunctionResult::String: return Result::Text;
        case FunctionResult::List: return Result::List;
        default: return Result::Number;
    }
}

class FormulaChecker {
  public:
    FormulaChecker(const std::string& formula, const FormulaScope& scope) : formula_(formula), scope_(scope) {}

    std::vector<Problem> check() {
        const ParsedFormula parsed = parseFormula(formula_.c_str());
        const auto stop = static_cast<std::size_t>(parsed.stopOffset);
        if (!parsed.tree) {
            problems_.push_back({stop, Problem::Error, "formula: " + parsed.message + advice(formula_, stop, parsed.message)});
            return std::move(problems_);
        }
        if (stop < formula_.size()) warn(stop, "a byte above 0x7F ends the formula; what follows is not read");
        checkNumbers();
        checkResult(*parsed.tree->nodes().back());
        const ExpressionTree::Nodes& nodes = parsed.tree->nodes();
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            if (const auto* attribute = dynamic_cast<const AttributeExpression*>(nodes[i].get())) {
                checkAttribute(*attribute);
            } else if (const auto* function = dynamic_cast<const FunctionExpression*>(nodes[i].get())) {
                checkFunction(*function, *nodes[i - 1]);  // behind its last argument
            }
        }
        return std::move(problems_);
    }

  private:
    void warn(std::size_t offset, const std::string& text) { problems_.push_back({offset, Problem::Warning, text}); }
    void warn(int offset, const std::string& text) { warn(static_cast<std::size_t>(offset), text); }

    void checkResult(const Expression& root) {
        const Result result = resultOf(root);
        const bool wantsText = scope_.type == STRING_DATA || scope_.type == PREVIOUS_STRING_DATA;
        if (result == Result::List) {
            warn(std::size_t{0}, "a list is no value, the metric would be 0; take the min, max, average, sum or trend of it");
        } else if (result == Result::Text && !wantsText && !scope_.anyResult) {
            warn(std::size_t{0}, "the formula gives a text, and the metric's type is one of numbers");
        } else if (result == Result::Number && wantsText && !scope_.anyResult) {
            warn(std::size_t{0}, "the formula gives a number, and the metric's type is one of texts; itoa makes a text of it");
        }
    }

    void checkNumbers() {
        ExpressionScanner scanner(formula_.c_str());
        for (ScannedToken t = scanner.next(); t.kind != TOKEN_END; t = scanner.next()) {
            if (t.kind != TOKEN_NUMBER || std::strtoll(std::string(t.text).c_str(), nullptr, 10) <= INT_MAX) continue;
            const NumberExpression number(std::string(t.text).c_str());
            warn(t.offset, std::string(t.text) + " does not fit 32 bits and counts as " + std::to_string(number.intValue()) + "; write " +
                               std::string(t.text) + ".0");
        }
    }

    void checkAttribute(const AttributeExpression& attribute) {
        const std::string& name = attribute.name();
        if (holds(scope_.present, name) || !told_.insert(name).second) return;
        const std::string value = scope_.type == STRING_DATA ? "its own name" : "0";
        if (holds(scope_.later, name)) {
            warn(attribute.offset(), "'" + name + "' is computed behind this metric; here it is missing and counts as " + value);
        } else {
            warn(attribute.offset(), "'" + name + "' is no attribute of the row; it counts as " + value + didYouMean(name, scope_.present));
        }
    }

    void checkFunction(const FunctionExpression& function, const Expression& lastArgument) {
        const ExpressionFunction* entry = function.entry();
        if (!entry) {
            std::vector<const char*> names;
            for (const ExpressionFunction& f : functions) names.push_back(f.name);
            warn(function.offset(), "unknown function '" + function.name() + "' has no value" + didYouMean(function.name(), names));
            return;
        }
        const int given = function.arguments();
        if (given < entry->least || (entry->most >= 0 && given > entry->most)) {
            const std::string most = entry->most != entry->least ? " to " + std::to_string(entry->most) : "";
            warn(function.offset(), function.name() + " takes " + std::to_string(entry->least) + most + " argument" +
                                        (entry->most == 1 ? "" : "s") + ", not " + std::to_string(given) + "; it would be empty or 0");
        } else if (function.name() == "last") {
            checkLast(function, dynamic_cast<const NumberExpression*>(&lastArgument));
        }
    }

    void checkLast(const FunctionExpression& function, const NumberExpression* samples) {
        if (++lastCalls_ == 2) warn(function.offset(), "all calls of last in a formula share the row's samples, and each adds one");
        if (!samples) {
            warn(function.offset(), "only a plain number sets the samples of last; 10 are kept");
        } else if (samples->type() == ExpressionType::Int && samples->intValue() < 2) {
            warn(function.offset(), "last keeps at least 2 samples; for " + std::to_string(samples->intValue()) + " it keeps 10");
        } else if (samples->type() == ExpressionType::Int && samples->intValue() > DerivedStorage::kMostSamples) {
            warn(function.offset(), "last keeps at most " + std::to_string(DerivedStorage::kMostSamples) + " samples");
        }
    }

    const std::string& formula_;
    const FormulaScope& scope_;
    std::vector<Problem> problems_;
    std::set<std::string> told_;  // names that are missing
    int lastCalls_ = 0;
};

}  // namespace

std::vector<Problem> checkFormula(const std::string& formula, const FormulaScope& scope) {
    return FormulaChecker(formula, scope).check();
}
