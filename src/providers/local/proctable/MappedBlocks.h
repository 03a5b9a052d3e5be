// Memory that a snapshot takes in blocks and gives back to the system when it ends. Nothing taken is moved.
#pragma once

#include <cstddef>
#include <vector>

class MappedBlocks {
  public:
    static constexpr std::size_t kBlockSize = 1024ul * 1024;  // pages are used as they are touched

    MappedBlocks() = default;
    ~MappedBlocks();
    MappedBlocks(const MappedBlocks&) = delete;
    MappedBlocks& operator=(const MappedBlocks&) = delete;

    // So many bytes, at most a block; consecutive ones lie side by side while they fit into a block. Null without memory.
    char* take(std::size_t size);
    char* block(std::size_t index) const { return blocks_[index]; }

  private:
    std::vector<char*> blocks_;
    std::size_t used_ = kBlockSize;  // of the last block
};
