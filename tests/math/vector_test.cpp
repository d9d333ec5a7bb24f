#include "kosc/vector.h"

#include <numeric>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

// Twenty elements whose parts are the places of their doubles; `odd` are the elements 1, 3, ... 19.
struct ComplexVector : testing::Test {
    double array[40];
    kom_vector_complex odd = kom_vector_complex_const_view_array(array, 20, 1, 2, 10);

    ComplexVector() { std::iota(array, array + 40, 0.0); }

    // Elements by their places; anything but an element of the array is none.
    static std::vector<uint32_t> places(const kom_vector_complex* v)
    {
        std::vector<uint32_t> all;
        for (uint32_t i = 0; v != nullptr && i < v->size; ++i) {
            const double* const element = v->data + 2 * i * v->stride;
            all.push_back(element[1] == element[0] + 1 ? static_cast<uint32_t>(element[0]) / 2 : 0);
        }
        return all;
    }
};

// Views check their bound in wrapping arithmetic; what is copied must truly lie inside.
TEST_F(ComplexVector, CopiesAndViewsRunsThatLieInside)
{
    const std::tuple<uint32_t, uint32_t, uint32_t, bool, bool> runs[] = {
        {1, 3, 3, true, true},          {1, 3, 4, false, false}, {0, 1, 10, true, true},
        {0, 1, 11, false, false},       {9, 7, 1, true, true},   {9, 1, 0, false, true},
        {10, 1, 0, false, false},       {0, 0, 1, false, false}, {1, 0x80000000, 3, false, true},
        {0xFFFFFFFF, 1, 2, false, true}};
    for (const auto& [offset, stride, count, copied, viewed] : runs) {
        SCOPED_TRACE(testing::Message() << count << " elements from " << offset << " by " << stride);
        std::vector<uint32_t> run, odd_run, placed(10);
        for (uint32_t i = 0; copied && i < count; ++i) {
            run.push_back(offset + i * stride);
            odd_run.push_back(2 * run[i] + 1);
            placed[run[i]] = 2 * i + 1;
        }
        const complex_ptr from_array{kom_vector_complex_alloc_from_array(array, 10, offset, stride, count)};
        const complex_ptr from_vector{kom_vector_complex_alloc_from_vector(&odd, offset, count, stride)};
        const complex_ptr target{kom_vector_complex_alloc(10)};
        kom_vector_complex_set_zero(target.get());
        const uint32_t done = copied ? count : 0;
        EXPECT_EQ(kom_vector_complex_set_by_vector(target.get(), offset, stride, &odd, 0, 1, count), done);
        EXPECT_EQ(places(target.get()), placed);
        EXPECT_EQ(kom_vector_complex_set_by_vector(target.get(), 0, 1, &odd, offset, stride, count), done);
        EXPECT_EQ(places(from_array.get()), run);
        EXPECT_EQ(places(from_vector.get()), odd_run);
        const auto view = kom_vector_complex_const_view_array(array, 10, offset, stride, count);
        const auto subvector = kom_vector_complex_const_subvector(&odd, offset, stride, count);
        EXPECT_TRUE((view.data != nullptr) == viewed && (subvector.data != nullptr) == viewed);
        EXPECT_TRUE(view.stride == (viewed ? stride : 0) && subvector.stride == (viewed ? 2 * stride : 0));
    }
}

TEST(PlainVectors, WriteInsideOnly)
{
    double numbers[] = {1, 2};
    byte_list bytes = {1, 2};
    auto v = kom_vector_const_view_array(numbers, 2, 0, 1, 2);
    auto b = view_of(bytes);
    for (const uint32_t place : {1U, 2U}) {
        kom_vector_set(&v, place, 9);
        kom_vector_uint8_set(&b, place, 9);
    }
    EXPECT_EQ(list(numbers, 2), (double_list{1, 9}));
    EXPECT_EQ(bytes, (byte_list{1, 9}));
    EXPECT_EQ(kom_vector_get(&v, 1) + kom_vector_get(&v, 2) + kom_vector_uint8_get(&b, 1) + kom_vector_uint8_get(&b, 2),
              18);
}

TEST_F(ComplexVector, ReadsAndWritesThroughTheStrideAndInsideOnly)
{
    auto outer = kom_vector_complex_const_subvector(&odd, 1, 4, 2); // 3, 11
    kom_vector_complex_reverse(&outer);
    kom_vector_complex_set(&outer, 1, 5, 6);
    kom_vector_complex_set(&outer, 2, 7, 8);
    EXPECT_EQ(list(&array[4], 22),
              (double_list{4, 5, 22, 23, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 5, 6, 24, 25}));
    EXPECT_EQ(kom_vector_complex_get(&outer, 1).im, 6);
    EXPECT_EQ(kom_vector_complex_get(&outer, 2).re + kom_vector_complex_get(&outer, 2).im, 0);
    kom_vector_complex_free(&outer); // a view owns nothing
    EXPECT_EQ(kom_vector_complex_stride(&outer), 8U);
    const doubles_ptr imag{kom_vector_complex_imag(&outer)};
    EXPECT_EQ(list(imag->data, 2), (double_list{23, 6}));
}

} // namespace
