// The lines of a command's output, in place: a pure walk over bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

class OutputLines {
  public:
    OutputLines() = default;
    // The bytes must outlive the walk. The text ends at its first NUL, if it has one.
    explicit OutputLines(std::string_view output)
        : at_(output.data()), end_(output.data() + (output.empty() ? 0 : strnlen(output.data(), output.size()))) {}

    // The next line without its line feed, of at most `size` bytes. False at the end, and at an empty line.
    // Kept: of a longer line the byte behind the cut is lost and the rest comes as the next line; an empty line reads
    // as the end of the output. Scripts that are in use were written with both.
    bool next(std::size_t size, std::string_view& line) {
        const std::size_t rest = static_cast<std::size_t>(end_ - at_);
        const std::size_t looked = std::min(size, rest);
        const void* lineFeed = looked > 0 ? std::memchr(at_, '\n', looked) : nullptr;
        const std::size_t n = lineFeed ? static_cast<std::size_t>(static_cast<const char*>(lineFeed) - at_) : looked;
        line = std::string_view(at_, n);
        at_ += n;
        if (at_ != end_) ++at_;
        return n > 0;
    }

  private:
    const char* at_ = nullptr;
    const char* end_ = nullptr;
};
