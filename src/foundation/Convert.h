// Doubles to integers, defined for every value. Truncation toward zero; what the target cannot hold, NaN among it,
// becomes the target's minimum.
#pragma once

#include <climits>

namespace convert {

inline int toInt32(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : INT_MIN;
}

inline long long toInt64(double value) {
    return value >= -9223372036854775808.0 && value < 9223372036854775808.0 ? static_cast<long long>(value) : LLONG_MIN;
}

// Values below 2^63 go through the signed conversion, so -1.0 is 2^64 - 1; from 2^63 up they convert as unsigned. What
// lies outside both, and NaN, is the signed minimum's bits.
inline unsigned long long toUInt64(double value) {
    if (value >= 9223372036854775808.0 && value < 18446744073709551616.0) return static_cast<unsigned long long>(value);
    return static_cast<unsigned long long>(toInt64(value));
}

// The low 32 bits, read as signed.
inline int low32(long long value) { return static_cast<int>(static_cast<unsigned>(static_cast<unsigned long long>(value))); }

}  // namespace convert
