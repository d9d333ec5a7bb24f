// Owning guards: the one clean-up path for whatever has a release function.
#ifndef KOSC_PLATFORM_OWNED_H
#define KOSC_PLATFORM_OWNED_H

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/bounded.h"

namespace kosc {

template <auto Release> struct releaser {
    template <typename T> void operator()(T* object) const { Release(object); }
};
template <typename T, auto Release> using owned = std::unique_ptr<T, releaser<Release>>;

inline void free_block(void* block) { std::free(block); }

// A plain block from malloc or calloc.
template <typename T> using block_ptr = owned<T[], free_block>;

// `count` elements, not cleared; null when there is no memory or the size passes what can be addressed. Counts have 64
// bits, so that a product of lengths reaches this check unwrapped on 32-bit processors too.
template <typename T> T* alloc_array(uint64_t count)
{
    return count > SIZE_MAX / sizeof(T) ? nullptr
                                        : static_cast<T*>(std::malloc(static_cast<size_t>(count) * sizeof(T)));
}

// `count` zeroed elements.
template <typename T> T* alloc_zeroed(uint64_t count)
{
    const auto addressable = static_cast<size_t>(count);
    // NOLINTNEXTLINE(bugprone-sizeof-expression): T may be a pointer, in an array of those.
    return addressable != count ? nullptr : static_cast<T*>(std::calloc(addressable, sizeof(T)));
}

// A record that is aligned to more than malloc's blocks are on some processors, not cleared; free_aligned() releases
// it. Made from malloc, since C libraries of older phones have no aligned_alloc() and Windows has another one. The byte
// before the record says how far into its block it lies.
template <typename T> T* alloc_aligned()
{
    static_assert(alignof(T) <= UINT8_MAX);
    auto* const block = static_cast<uint8_t*>(std::malloc(sizeof(T) + alignof(T)));
    if (block == nullptr) {
        return nullptr;
    }
    const size_t shift = alignof(T) - reinterpret_cast<uintptr_t>(block) % alignof(T);
    block[shift - 1] = static_cast<uint8_t>(shift);
    return reinterpret_cast<T*>(block + shift);
}

template <typename T> void free_aligned(T* record)
{
    auto* const place = reinterpret_cast<uint8_t*>(record);
    std::free(place == nullptr ? nullptr : place - place[-1]);
}

// A cleared record.
template <typename T> T* alloc_record()
{
    auto* record = static_cast<T*>(std::malloc(sizeof(T)));
    bounded_set(record, sizeof(T), 0, sizeof(T));
    return record;
}

} // namespace kosc

#endif
