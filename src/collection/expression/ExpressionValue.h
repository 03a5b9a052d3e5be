// ExpressionValue: the result of one node of a formula for one row, read by the node above it.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "collection/rows/Expression.h"
#include "foundation/Convert.h"

class Metric;

// The samples of `last`, from the oldest to the newest.
using SampleList = std::vector<double>;

class ExpressionValue {
  public:
    ExpressionType getType() const { return type_; }
    // No conversion: the number's bits stay, a text is dropped.
    void setType(ExpressionType type) {
        if (type_ != type && type_ == ExpressionType::String) text_ = {};
        type_ = type;
    }
    // The class of the node that gave this value.
    ExpressionClass getClass() const { return class_; }
    void setClass(ExpressionClass expressionClass) { class_ = expressionClass; }

    // A text counts as 0, and so does a list. A double is truncated toward zero (foundation/Convert.h).
    int getInt() const {
        switch (type_) {
            case ExpressionType::Int:
            case ExpressionType::Int64:
            case ExpressionType::UInt64: return convert::low32(int64_);
            case ExpressionType::Double: return convert::toInt32(double_);
            default: return 0;
        }
    }
    long long getInt64() const {
        switch (type_) {
            case ExpressionType::Int:
            case ExpressionType::Int64:
            case ExpressionType::UInt64: return int64_;
            case ExpressionType::Double: return convert::toInt64(double_);
            default: return 0;
        }
    }
    unsigned long long getUInt64() const {
        return type_ == ExpressionType::Double ? convert::toUInt64(double_) : static_cast<unsigned long long>(getInt64());
    }
    double getDouble() const {
        switch (type_) {
            case ExpressionType::Int:
            case ExpressionType::Int64: return static_cast<double>(int64_);
            case ExpressionType::UInt64: return static_cast<double>(static_cast<unsigned long long>(int64_));
            case ExpressionType::Double: return double_;
            default: return 0.0;
        }
    }
    // Terminated; empty for anything but a text. Valid until the value is set again and the row is gone.
    const char* getString() const { return type_ == ExpressionType::String && text_.data() ? text_.data() : ""; }
    std::string_view text() const { return type_ == ExpressionType::String ? text_ : std::string_view(); }
    // Null for anything but a list.
    const SampleList* getList() const { return type_ == ExpressionType::List ? list_ : nullptr; }

    void setInt(int value) { setInteger(ExpressionType::Int, value); }
    void setInt64(long long value) { setInteger(ExpressionType::Int64, value); }
    void setUInt64(unsigned long long value) { setInteger(ExpressionType::UInt64, static_cast<long long>(value)); }
    void setDouble(double value) {
        type_ = ExpressionType::Double;
        double_ = value;
    }
    void setList(const SampleList* list) {
        type_ = ExpressionType::List;
        list_ = list;
    }
    // A text that is terminated and outlives the evaluation: no copy.
    void setText(std::string_view text) {
        type_ = ExpressionType::String;
        text_ = text;
    }
    void copyText(std::string_view text) {
        buffer_.assign(text);
        setText(buffer_);
    }
    // Takes the text and gives its own buffer back, so that both keep their room.
    void swapText(std::string& text) {
        buffer_.swap(text);
        setText(buffer_);
    }
    // Of a text.
    void appendText(std::string_view text) {
        if (text_.data() != buffer_.data()) buffer_.assign(text_);
        buffer_.append(text);
        setText(buffer_);
    }
    // The neutral result of a metric's raw type: an empty text, a 64-bit 0 for 32-bit deltas and rates, else a 32-bit 0.
    void setDefaultValue(const Metric& metric);

    // Gives back a text buffer larger than this.
    void trim(std::size_t room) {
        if (buffer_.capacity() > room) std::string().swap(buffer_);
    }

  private:
    void setInteger(ExpressionType type, long long value) {
        type_ = type;
        int64_ = value;
    }

    ExpressionType type_ = ExpressionType::None;
    ExpressionClass class_ = ExpressionClass::Number;
    union {
        long long int64_ = 0;  // all integers, the 32-bit ones sign-extended
        double double_;
        const SampleList* list_;
    };
    std::string_view text_;  // into buffer_, the formula or the row
    std::string buffer_;     // keeps its room from row to row
};
