#include "providers/local/availability/ProcessText.h"

#include <algorithm>

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kWhiteSpaceAndEquals = " \t\r\n=";

void fold(std::string_view text, std::string* out) {
    out->assign(text);
    for (char& c : *out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
}

}  // namespace

std::string folded(std::string_view text) {
    std::string result;
    fold(text, &result);
    return result;
}

bool TokenWalk::next(std::string_view* token) {
    if (at_ >= text_.size()) return false;
    const std::size_t end = std::min(text_.find_first_of(delimiters_, at_), text_.size());
    *token = text_.substr(at_, end - at_);
    at_ = end + 1;
    return true;
}

bool hasArgument(std::string_view commandLine, std::string_view argument) {
    TokenWalk tokens(commandLine, kWhiteSpace);
    for (std::string_view token; tokens.next(&token);) {
        if (token == argument) return true;
    }
    return false;
}

bool hasArgumentWithValue(std::string_view commandLine, std::string_view argument, std::string_view value) {
    TokenWalk tokens(commandLine, kWhiteSpaceAndEquals);
    for (std::string_view token; tokens.next(&token);) {
        if (token == argument && tokens.next(&token) && token == value) return true;
    }
    return false;
}

void ProcessText::set(const char* baseName, const char* fullName, const char* commandLine) {
    fold(baseName, &base_);
    fullName_ = fullName;
    commandLine_ = commandLine;
}

std::string_view ProcessText::fullName() {
    if (fullName_) fold(fullName_, &full_);
    fullName_ = nullptr;
    return full_;
}

std::string_view ProcessText::commandLine() {
    if (commandLine_) fold(commandLine_, &command_);
    commandLine_ = nullptr;
    return command_;
}
