// Receivers whose first allocation fails, then the second, and so on until none fails any more.
#include "receivers.h"

#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

namespace {

int allocations_left = -1; // before the one that fails; below 0 none does

bool refuses() { return allocations_left >= 0 && allocations_left-- == 0; }

} // namespace

extern "C" {
void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __wrap_malloc(size_t size) { return refuses() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return refuses() ? nullptr : __real_calloc(count, size); }
}

void* operator new(size_t size)
{
    void* const memory = malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc{};
    }
    return memory;
}
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }

TEST(JavaReceivers, HearAgainAfterEveryAllocationThatFails)
{
    log_level = 0;
    const auto frame = kosc::encoder::make()->encode("short of memory");
    const auto later = kosc::encoder::make()->encode("memory again");
    ASSERT_TRUE(frame && later);
    const auto push = [](kosc_jni::receiver& to, const std::vector<int16_t>& sound) {
        return to.push(0, sound.data(), static_cast<uint32_t>(sound.size()));
    };
    int nth = 0;
    for (bool refused = true; refused; ++nth) {
        SCOPED_TRACE(nth);
        kosc_jni::receiver receiver{{{kosc::DEFAULT_SUBCARRIER}, true, true, KOSC_COMBINING_TOGETHER}};
        size_t told = 0;
        allocations_left = nth;
        try {
            if (push(receiver, *frame) && receiver.finish()) {
                told = receiver.messages(0, 1).size();
            }
        } catch (const std::bad_alloc&) {
            told = 0;
        }
        refused = allocations_left < 0;
        allocations_left = -1;
        EXPECT_GE(receiver.messages(0, 1).size(), told); // what was told is kept until it is forgotten
        EXPECT_TRUE(refused || told == 1) << told;
        receiver.forget(0, 1);
        ASSERT_TRUE(push(receiver, *later) && receiver.finish());
        EXPECT_EQ(receiver.messages(0, 1).size(), 1U);
    }
    EXPECT_GT(nth, 50);
}
