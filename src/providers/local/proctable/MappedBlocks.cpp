#include "providers/local/proctable/MappedBlocks.h"

#include <sys/mman.h>

MappedBlocks::~MappedBlocks() {
    for (char* block : blocks_) ::munmap(block, kBlockSize);
}

char* MappedBlocks::take(std::size_t size) {
    if (size > kBlockSize) return nullptr;
    if (kBlockSize - used_ < size) {
        void* block = ::mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED) return nullptr;
        blocks_.push_back(static_cast<char*>(block));
        used_ = 0;
    }
    char* const taken = blocks_.back() + used_;
    used_ += size;
    return taken;
}
