// Sizes that pass what a 32-bit processor can address, before they are cut down to its size_t; and records that malloc
// would not align.
#include "platform/owned.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace kosc;

// Keeps the block in memory for a moment: an allocation that nobody looks at may be left out, and count as served.
bool is_served(double* block)
{
    static double* volatile kept;
    kept = block;
    const block_ptr<double> owner{kept};
    return owner != nullptr;
}

TEST(Allocation, RefusesMoreThanCanBeAddressed)
{
    // Volatile: compilers refuse to translate such a request when they see it.
    const volatile uint64_t limit = uint64_t{SIZE_MAX} / sizeof(double);
    EXPECT_FALSE(is_served(alloc_array<double>(limit + 1)));
    EXPECT_FALSE(is_served(alloc_zeroed<double>(limit + 1)));
    if (sizeof(size_t) < sizeof(uint64_t)) {
        EXPECT_FALSE(is_served(alloc_array<double>(uint64_t{1} << 32))) << "0 when cut";
        EXPECT_FALSE(is_served(alloc_zeroed<double>(uint64_t{1} << 32))) << "0 when cut";
    }
}

TEST(Allocation, AlignsRecordsToMoreThanMallocDoes)
{
    struct alignas(128) record {
        uint8_t bytes[128];
    };
    std::vector<owned<record, free_aligned<record>>> records; // several, since one could lie well by chance
    for (int i = 0; i < 20; ++i) {
        records.emplace_back(alloc_aligned<record>());
        ASSERT_EQ(reinterpret_cast<uintptr_t>(records.back().get()) % alignof(record), 0U);
        std::memset(records.back().get(), i, sizeof(record)); // sanitizers see what lies outside
    }
}

} // namespace
