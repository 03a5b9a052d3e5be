// Values that must never be seen in a trace. Whoever learns a secret registers it; the trace puts "xxx" in
// its place. Every operation may be called from any thread; none throws.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace almanac::host {

// Registers a value of 4 bytes or more; a shorter one is ignored, because masking it would eat plain words.
// A value registered twice counts once. The oldest is forgotten beyond 4,096.
void registerSecret(const std::string& value);

// The length of the longest secret; 0 if there is none, which costs one load to know.
std::size_t longestSecret();

// The first `length` bytes of `text` with every registered value that begins there replaced by "xxx". An
// occurrence that reaches over `length` is replaced whole.
std::string maskSecrets(std::string_view text, std::size_t length);

}  // namespace almanac::host
