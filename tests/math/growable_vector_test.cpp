#include "kosc/growable_vector.h"

#include <deque>
#include <random>

#include <gtest/gtest.h>

#include "support/owned.h"

namespace {

TEST(GrowableVector, BehavesLikeABoundedQueue)
{
    constexpr uint32_t CAPACITY = 7;
    const queue_ptr queue{vector_init(CAPACITY)};
    std::deque<double> model;
    std::mt19937 random{3};
    for (int round = 1; round < 5000; ++round) {
        if (random() % 4 != 0) {
            const bool fits = model.size() < CAPACITY;
            ASSERT_EQ(vector_push_back(queue.get(), round), fits);
            model.resize(model.size() + (fits ? 1 : 0), round);
        } else {
            const uint32_t asked = random() % 10, removed = std::min<uint32_t>(asked, model.size());
            ASSERT_EQ(vector_remove_front(queue.get(), asked), removed);
            model.erase(model.begin(), model.begin() + removed);
        }
        const auto size = static_cast<int32_t>(model.size()), index = static_cast<int32_t>(random() % 18) - 9;
        const int32_t at = index < 0 ? size + index : index; // negative ones count from the back
        const bool held = at >= 0 && at < size;
        const uint32_t count = random() % 9, last = held ? size - at : 0;
        ASSERT_EQ(vector_size(queue.get()), model.size());
        ASSERT_EQ(vector_unused(queue.get()), CAPACITY - model.size());
        ASSERT_EQ(vector_back(queue.get()), size == 0 ? 0 : model.back());
        ASSERT_EQ(vector_at(queue.get(), index), held ? model[at] : 0);
        ASSERT_EQ(vector_view(queue.get(), index, count), held && count <= last ? queue->begin + at : nullptr);
        ASSERT_EQ(vector_set(queue.get(), index, -round), held);
        if (held) {
            model[at] = -round;
        }
    }
    EXPECT_EQ(vector_view(queue.get(), 0, UINT32_MAX), nullptr);
    EXPECT_EQ(vector_view(queue.get(), INT32_MIN, 1), nullptr);
    EXPECT_EQ(vector_init(0), nullptr);
}

} // namespace
