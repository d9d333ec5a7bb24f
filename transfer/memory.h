// Blocks from malloc with one clean-up path.
#ifndef KOSC_TRANSFER_MEMORY_H
#define KOSC_TRANSFER_MEMORY_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace kosc_transfer {

struct free_block {
    void operator()(void* block) const { std::free(block); }
};
template <typename T> using block_ptr = std::unique_ptr<T[], free_block>;

// `count` elements, not cleared; null when there is no memory or their size passes what can be addressed.
template <typename T> block_ptr<T> alloc_block(uint32_t count)
{
    const size_t elements = count != 0 ? count : 1; // malloc(0) may give null
    return block_ptr<T>{elements > SIZE_MAX / sizeof(T) ? nullptr : static_cast<T*>(std::malloc(elements * sizeof(T)))};
}

// A record in its first state, for release(); null when memory is short.
template <typename T> T* make()
{
    void* const block = std::malloc(sizeof(T));
    return block != nullptr ? new (block) T() : nullptr;
}

template <typename T> void release(T* record)
{
    if (record != nullptr) {
        record->~T();
        std::free(record);
    }
}

struct release_record {
    template <typename T> void operator()(T* record) const { release(record); }
};
template <typename T> using record_ptr = std::unique_ptr<T, release_record>;

} // namespace kosc_transfer

#endif
