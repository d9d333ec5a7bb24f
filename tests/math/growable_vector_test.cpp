#include "kosc/growable_vector.h"

#include <gtest/gtest.h>

#include "support/owned.h"

namespace {

TEST(GrowableVector, IsABoundedQueueWhoseIndicesMayCountFromTheBack)
{
    const queue_ptr queue{vector_init(3)};
    for (int round = 0; round < 20; ++round) {
        for (int i = 1; i <= 4; ++i) {
            ASSERT_EQ(vector_push_back(queue.get(), 10 * round + i), i <= 3);
        }
        ASSERT_EQ(vector_at(queue.get(), -3), 10 * round + 1);
        ASSERT_EQ(vector_view(queue.get(), -2, 2), queue->begin + 1);
        ASSERT_EQ(vector_view(queue.get(), -2, 3), nullptr);
        ASSERT_TRUE(vector_set(queue.get(), -1, 7) && !vector_set(queue.get(), 3, 7));
        ASSERT_FALSE(vector_set(queue.get(), -4, 7) || vector_at(queue.get(), 3) != 0 ||
                     vector_at(queue.get(), -4) != 0);
        ASSERT_EQ(vector_remove_front(queue.get(), 2), 2U);
        ASSERT_TRUE(vector_back(queue.get()) == 7 && vector_size(queue.get()) == 1);
        ASSERT_EQ(vector_remove_front(queue.get(), 2), 1U);
        ASSERT_TRUE(vector_back(queue.get()) == 0 && vector_unused(queue.get()) == 3);
    }
    EXPECT_EQ(vector_view(queue.get(), 0, UINT32_MAX), nullptr);
    EXPECT_EQ(vector_view(queue.get(), INT32_MIN, 1), nullptr);
    EXPECT_EQ(vector_init(0), nullptr);
}

} // namespace
