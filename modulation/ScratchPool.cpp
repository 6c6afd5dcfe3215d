#include "modulation/ScratchPool.h"

#include <cstdlib>

namespace varitap {

// Enough records for every block a plug-in ever holds at once, so that
// adding a block rarely grows the list itself.
static constexpr size_t kReservedBlocks = 32;

ScratchPool::ScratchPool() {
    blocks_.reserve(kReservedBlocks);
    addBlock(kInitialBlockBytes, 0);
}

ScratchPool::~ScratchPool() {
    for (Block& block : blocks_) std::free(block.data);
}

void* ScratchPool::addBlock(uint32_t bytes, uint32_t flags) {
    // Allocated by design: a block's first use. malloc's alignment (16 bytes
    // on 64-bit glibc) suits the 4-lane vector loops.
    void* data = std::malloc(bytes ? bytes : 1);
    if (!data) return nullptr;
    blocks_.push_back(Block{data, bytes, flags});
    return data;
}

void* ScratchPool::allocate(uint32_t bytes) {
    ScopedLock lock(mutex_);
    for (Block& block : blocks_) {
        if (!(block.flags & kInUse) && block.size >= bytes) {
            block.flags |= kInUse;
            return block.data;
        }
    }
    return addBlock(bytes, kInUse);
}

void ScratchPool::release(void* data) {
    ScopedLock lock(mutex_);
    for (Block& block : blocks_) {
        if (block.data == data) {
            block.flags = 0;
            return;
        }
    }
}

uint32_t ScratchPool::blockCount() const {
    ScopedLock lock(mutex_);
    return static_cast<uint32_t>(blocks_.size());
}

uint32_t ScratchPool::totalBytes() const {
    ScopedLock lock(mutex_);
    uint32_t total = 0;
    for (const Block& block : blocks_) total += block.size;
    return total;
}

}  // namespace varitap
