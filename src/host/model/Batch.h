// Rows of one table, one behind the other in one buffer. A value of one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "host/model/Table.h"

namespace almanac::host {

class Batch {
  public:
    // Bytes that one batch may hold; more rows are refused.
    static constexpr std::size_t kMaxBytes = std::size_t{64} << 20;

    Batch() = default;
    explicit Batch(std::shared_ptr<const TableLayout> layout) : layout_(std::move(layout)) {}

    const TableLayout* layout() const { return layout_.get(); }
    const std::shared_ptr<const TableLayout>& sharedLayout() const { return layout_; }
    std::size_t count() const { return count_; }
    bool empty() const { return count_ == 0; }
    // Row `index`, layout()->rowSize bytes.
    const char* row(std::size_t index) const { return bytes_.data() + index * layout_->rowSize; }

    // Makes room for rows that are known to come, within the bound.
    void reserve(std::size_t rows) {
        if (layout_ && layout_->rowSize > 0 && rows <= kMaxBytes / layout_->rowSize)
            bytes_.reserve(rows * layout_->rowSize);
    }

    // Copies a row of `size` bytes: what is beyond the layout is cut, what is missing is zero. False without
    // a layout or at the bound. May throw std::bad_alloc.
    bool append(const char* row, std::size_t size) {
        if (!layout_ || bytes_.size() + layout_->rowSize > kMaxBytes) return false;
        const std::size_t old = bytes_.size();
        const std::size_t taken = std::min(size, layout_->rowSize);
        bytes_.insert(bytes_.end(), row, row + taken);
        bytes_.resize(old + layout_->rowSize);
        ++count_;
        return true;
    }

  private:
    std::shared_ptr<const TableLayout> layout_;
    std::vector<char> bytes_;
    std::size_t count_ = 0;
};

}  // namespace almanac::host
