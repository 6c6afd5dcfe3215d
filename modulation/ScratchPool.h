// The one allocator used on the audio path: a process-wide pool of scratch
// blocks that are reused first-fit and never given back while the pool lives.
#pragma once

#include <cstdint>
#include <vector>

#include "modulation/RecursiveMutex.h"

namespace varitap {

class ScratchPool : public SharedObject<ScratchPool> {
public:
    static constexpr uint32_t kInitialBlockBytes = 44100;

    // construction thread. Starts with one block of kInitialBlockBytes.
    ScratchPool();
    ~ScratchPool() override;

    // audio thread; takes the pool's lock (waiting, for one list walk).
    // The first free block of at least bytes, or a new block of exactly
    // bytes: a block's first use is the only time this allocates. Null when
    // memory cannot be had.
    void* allocate(uint32_t bytes);
    // audio thread; an unknown pointer is ignored.
    void release(void* data);
    // Dropping the holder's reference on the pool itself (release() with no
    // argument) stays reachable next to release(data).
    using RefObject::release;

    uint32_t blockCount() const;
    uint32_t totalBytes() const;

private:
    static constexpr uint32_t kInUse = 2;
    struct Block {
        void* data;
        uint32_t size;
        uint32_t flags;
    };
    void* addBlock(uint32_t bytes, uint32_t flags);

    mutable RecursiveMutex mutex_;
    std::vector<Block> blocks_;
};

// Borrows a block for one scope. Typed in floats, as every user needs.
class ScratchBlock {
public:
    ScratchBlock(ScratchPool* pool, uint32_t floats)
        : pool_(pool),
          data_(pool ? static_cast<float*>(pool->allocate(floats * sizeof(float))) : nullptr) {}
    ~ScratchBlock() {
        if (data_) pool_->release(data_);
    }
    ScratchBlock(const ScratchBlock&) = delete;
    ScratchBlock& operator=(const ScratchBlock&) = delete;

    float* data() const { return data_; }
    explicit operator bool() const { return data_ != nullptr; }

private:
    ScratchPool* pool_;
    float* data_;
};

}  // namespace varitap
