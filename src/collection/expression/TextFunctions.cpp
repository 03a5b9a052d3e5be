// Functions of texts.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "collection/expression/ExpressionFunctions.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"

namespace {

// Whether there is one argument and it is a text; traced if not.
bool isOneText(FunctionArguments arguments, const char* wrongNumber) {
    TRACE_MESSAGES();
    if (arguments.size() != 1) {
        trace_state("%s", wrongNumber);
        return false;
    }
    if (arguments[0].getType() != ExpressionType::String) {
        trace_state("Non-String result is not supported");
        return false;
    }
    return true;
}

void NtoiFunction(FunctionResult& result, FunctionArguments arguments, bool hexadecimal) {
    TRACE_MESSAGES();
    result.type = FunctionResult::Integer;
    if (!isOneText(arguments, "Wrong number of arguments for string to number conversion function")) return;
    const char* text = arguments[0].getString();
    unsigned long long hex = 0;
    const int scanned =
        hexadecimal ? std::sscanf(text, "%llx", &hex) : std::sscanf(text, "%lld", &result.integerValue);
    if (hexadecimal) result.integerValue = static_cast<long long>(hex);
    if (scanned == EOF) trace_detail("ntoi() failed - number %s converted to", text);
}

// The index of a field; -1 for the last one.
int fieldIndex(const ExpressionValue& field) {
    TRACE_MESSAGES();
    if (field.getType() == ExpressionType::Int) return field.getInt() < 0 ? INT_MAX : field.getInt();
    if (std::strcmp(field.getString(), "LAST") == 0) return -1;
    char* end = nullptr;
    const long number = std::strtol(field.getString(), &end, 10);
    if (end == field.getString() || *end) {
        trace_error("Invalid field argument %s: Must be a number or the literal LAST", field.getString());
        return 0;
    }
    return number < 0 || number > INT_MAX ? INT_MAX : static_cast<int>(number);
}

}  // namespace

void AtofFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    TRACE_MESSAGES();
    if (!isOneText(arguments, "Wrong number of arguments for atof() function")) return;
    const char* text = arguments[0].getString();
    if (std::sscanf(text, "%lf", &result.doubleValue) == EOF) {
        trace_detail("atof() failed - number %s converted to %lg", text, result.doubleValue);
    }
}

void AtoiFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) { NtoiFunction(result, arguments, false); }

void HtoiFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) { NtoiFunction(result, arguments, true); }

void ItoaFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    TRACE_MESSAGES();
    result.type = FunctionResult::String;
    if (arguments.size() != 1) {
        trace_state("Wrong number of arguments for itoa() function");
        return;
    }
    switch (arguments[0].getType()) {
        case ExpressionType::Int:
        case ExpressionType::Int64:
        case ExpressionType::UInt64:
        case ExpressionType::Double: {
            char text[32];
            const int length = std::snprintf(text, sizeof text, "%lld", arguments[0].getInt64());
            result.stringValue.assign(text, static_cast<std::size_t>(length));
            break;
        }
        default:
            trace_state("Non Integer input value is not supported");
    }
}

void GetenvFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.type = FunctionResult::String;
    if (!isOneText(arguments, "Wrong number of arguments for getenv() function")) return;
    const std::string name(arguments[0].text());
    const std::unique_ptr<char, decltype(&std::free)> configured(
        Utilities::substituteEnvVars(("${" + name + "}").c_str(), nullptr, nullptr, false), &std::free);
    if (configured) result.stringValue = configured.get();
    if (!result.stringValue.empty()) return;
    const char* value = ZSV1_GetProcessEnv(name.c_str());
    if (!value) value = ZSV1_GetEnv(name.c_str());
    if (value) result.stringValue = value;
}

void TokenizeFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    TRACE_MESSAGES();
    result.type = FunctionResult::String;
    if (arguments.size() != 3) {
        trace_state("Wrong number of arguments for Tokenize() function-- requires String, token character, field number");
        return;
    }
    const ExpressionType kind = arguments[2].getType();
    if (arguments[0].getType() != ExpressionType::String || arguments[1].getType() != ExpressionType::String ||
        (kind != ExpressionType::Int && kind != ExpressionType::String)) {
        trace_state("Wrong argument types for Tokenize() function-- requires String, token character, field number");
        return;
    }
    const int field = fieldIndex(arguments[2]);
    const char* const delimiters = arguments[1].getString();
    const char* at = arguments[0].getString();
    std::string_view token;  // runs of delimiters count as one, so no field is empty
    int i = 0;
    for (at += std::strspn(at, delimiters); *at; at += std::strspn(at, delimiters), ++i) {
        const std::size_t length = std::strcspn(at, delimiters);
        token = std::string_view(at, length);
        if (i == field) break;
        at += length;
    }
    if (*at || field < 0) {
        result.stringValue = token;
    } else {
        trace_detail("No field %d in string %s with tok %s", field, arguments[0].getString(), delimiters);
    }
}
