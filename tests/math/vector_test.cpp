#include "kosc/vector.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

// One family under common names.
#define KOSC_FAMILY(family, prefix, doubles)                                                                           \
    struct family {                                                                                                    \
        using V = prefix;                                                                                              \
        using ptr = owned<V, prefix##_free>;                                                                           \
        static constexpr uint32_t parts = doubles;                                                                     \
        static constexpr auto alloc = prefix##_alloc;                                                                  \
        static constexpr auto from_array = prefix##_alloc_from_array;                                                  \
        static constexpr auto from_vector = prefix##_alloc_from_vector;                                                \
        static constexpr auto copy = prefix##_set_by_vector;                                                           \
        static constexpr auto zero = prefix##_set_zero;                                                                \
        static constexpr auto reverse = prefix##_reverse;                                                              \
        static constexpr auto view = prefix##_const_view_array;                                                        \
        static constexpr auto subvector = prefix##_const_subvector;                                                    \
    }
KOSC_FAMILY(byte_family, kom_vector_uint8, 1);
KOSC_FAMILY(double_family, kom_vector, 1);
KOSC_FAMILY(complex_family, kom_vector_complex, 2);

template <typename F> struct VectorFamily : testing::Test {
    using V = typename F::V;
    std::remove_pointer_t<decltype(V::data)> array[20 * F::parts]; // every number is its place
    V odd = F::view(array, 20, 1, 2, 10);                          // elements 1, 3, ... 19

    VectorFamily()
    {
        for (uint32_t i = 0; i < 20 * F::parts; ++i) {
            array[i] = static_cast<uint8_t>(i);
        }
    }
    // The first parts of all elements; second parts follow their first ones, or are zero as well.
    static std::vector<uint32_t> elements(const V* v)
    {
        std::vector<uint32_t> all;
        for (uint32_t i = 0; v != nullptr && i < v->size; ++i) {
            const auto* const element = v->data + F::parts * i * v->stride;
            EXPECT_TRUE(F::parts == 1 || element[1] == element[0] + 1 || element[1] + element[0] == 0);
            all.push_back(static_cast<uint32_t>(element[0]) / F::parts);
        }
        return all;
    }
};
using families = testing::Types<byte_family, double_family, complex_family>;
TYPED_TEST_SUITE(VectorFamily, families, ); // clang -Wpedantic wants the third argument, if empty

// Views check their bound in wrapping arithmetic; what is copied must truly lie inside.
TYPED_TEST(VectorFamily, CopiesAndViewsRunsThatLieInside)
{
    using F = TypeParam;
    const struct {
        uint32_t offset, stride, count;
        bool copied, viewed;
    } runs[] = {{1, 3, 3, true, true},          {1, 3, 4, false, false}, {0, 1, 10, true, true},
                {0, 1, 11, false, false},       {9, 7, 1, true, true},   {9, 1, 0, false, true},
                {10, 1, 0, false, false},       {0, 0, 1, false, false}, {1, 0x80000000, 3, false, true},
                {0xFFFFFFFF, 1, 2, false, true}};
    for (const auto& [offset, stride, count, copied, viewed] : runs) {
        SCOPED_TRACE(testing::Message() << count << " elements from " << offset << " by " << stride);
        std::vector<uint32_t> run, odd_run, taken(10), placed(10);
        for (uint32_t i = 0; copied && i < count; ++i) {
            run.push_back(offset + i * stride);
            odd_run.push_back(2 * run[i] + 1);
            taken[i] = odd_run[i];
            placed[run[i]] = 2 * i + 1;
        }
        const typename F::ptr from_array{F::from_array(this->array, 10, offset, stride, count)};
        const typename F::ptr from_vector{F::from_vector(&this->odd, offset, count, stride)};
        const typename F::ptr source{F::alloc(10)}, target{F::alloc(10)};
        F::zero(source.get());
        F::zero(target.get());
        EXPECT_EQ(F::copy(source.get(), 0, 1, &this->odd, offset, stride, count), copied ? count : 0);
        EXPECT_EQ(F::copy(target.get(), offset, stride, &this->odd, 0, 1, count), copied ? count : 0);
        EXPECT_TRUE((from_array != nullptr) == copied && (from_vector != nullptr) == copied);
        EXPECT_EQ(this->elements(from_array.get()), run);
        EXPECT_EQ(this->elements(from_vector.get()), odd_run);
        EXPECT_EQ(this->elements(source.get()), taken);
        EXPECT_EQ(this->elements(target.get()), placed);
        const auto view = F::view(this->array, 10, offset, stride, count);
        const auto subvector = F::subvector(&this->odd, offset, stride, count);
        EXPECT_TRUE((view.data != nullptr) == viewed && (subvector.data != nullptr) == viewed);
        EXPECT_EQ(view.size + subvector.size, viewed ? 2 * count : 0);
        EXPECT_TRUE(view.stride == (viewed ? stride : 0) && subvector.stride == (viewed ? 2 * stride : 0));
        if (copied) {
            EXPECT_EQ(this->elements(&view), run);
            EXPECT_EQ(this->elements(&subvector), odd_run);
        }
    }
}

TYPED_TEST(VectorFamily, ChangesItsOwnElementsOnly)
{
    using F = TypeParam;
    auto thirds = F::view(this->array, 20, 1, 3, 5); // 1, 4, 7, 10, 13
    F::reverse(&thirds);
    auto outer = F::subvector(&thirds, 2, 2, 2);
    F::zero(&outer);
    const auto whole = F::view(this->array, 20, 0, 1, 20);
    EXPECT_EQ(this->elements(&whole),
              (std::vector<uint32_t>{0, 13, 2, 3, 10, 5, 6, 0, 8, 9, 4, 11, 12, 0, 14, 15, 16, 17, 18, 19}));
}

TEST(ComplexVector, ReadsAndWritesThroughTheStrideAndInsideOnly)
{
    double array[] = {1, 2, 90, 91, 3, 4, 92, 93};
    auto v = kom_vector_complex_const_view_array(array, 4, 0, 2, 2);
    kom_vector_complex_set(&v, 1, 5, 6);
    kom_vector_complex_set(&v, 2, 7, 8);
    EXPECT_EQ(kom_vector_complex_get(&v, 1).im, 6);
    EXPECT_EQ(kom_vector_complex_get(&v, 2).re + kom_vector_complex_get(&v, 2).im, 0);
    EXPECT_EQ(kom_vector_complex_conj(&v), &v);
    EXPECT_EQ(list(array, 8), (double_list{1, -2, 90, 91, 5, -6, 92, 93}));
    kom_vector_complex_free(&v); // a view owns nothing
    EXPECT_EQ(list(
                  doubles_ptr { kom_vector_complex_real(&v) } -> data, 2),
              (double_list{1, 5}));
    EXPECT_EQ(list(
                  doubles_ptr { kom_vector_complex_imag(&v) } -> data, 2),
              (double_list{-2, -6}));
    const auto strided = kom_vector_const_view_array(array, 8, 1, 3, 3); // -2, 5, 93
    EXPECT_EQ(list(
                  complex_ptr { kom_vector_complex_real_to_complex(&strided) } -> data, 6),
              (double_list{-2, 0, 5, 0, 93, 0}));
}

TEST(ComplexVector, DividesElementByElement)
{
    double dividend[] = {3, 4, 1, 1}, divisor[] = {1, -2, 0, 0};
    auto a = kom_vector_complex_const_view_array(dividend, 2, 0, 1, 2);
    const auto b = kom_vector_complex_const_view_array(divisor, 2, 0, 1, 2);
    const auto shorter = kom_vector_complex_const_view_array(divisor, 2, 0, 1, 1);
    EXPECT_EQ(kom_vector_complex_div_inplace(&a, &shorter), -1);
    EXPECT_EQ(list(dividend, 4), (double_list{3, 4, 1, 1}));
    EXPECT_EQ(kom_vector_complex_div_inplace(&a, &b), 0);
    EXPECT_NEAR(dividend[0], -1, 1e-15); // (3 + 4i) / (1 - 2i) = -1 + 2i, to a few units in the last place
    EXPECT_NEAR(dividend[1], 2, 1e-15);
    EXPECT_FALSE(std::isfinite(dividend[2]) || std::isfinite(dividend[3])); // a zero divisor is no failure
}

} // namespace
