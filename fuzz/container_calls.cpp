#include "container_calls.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

#include "failing_malloc.h"
#include "kosc/growable_vector.h"
#include "kosc/vector.h"
#include "owned.h"

namespace {

// One family's operations under one name; `Parts` numbers make an element.
#define FUZZ_FAMILY(Name, Record, Element, Parts)                                                                      \
    struct Name {                                                                                                      \
        using element = Element;                                                                                       \
        using record = Record;                                                                                         \
        using pointer = owned<Record, Record##_free>;                                                                  \
        static constexpr uint32_t PARTS = Parts;                                                                       \
        static constexpr auto from_array = Record##_alloc_from_array;                                                  \
        static constexpr auto from_vector = Record##_alloc_from_vector;                                                \
        static constexpr auto release = Record##_free;                                                                 \
        static constexpr auto copy = Record##_set_by_vector;                                                           \
        static constexpr auto view = Record##_const_view_array;                                                        \
        static constexpr auto subvector = Record##_const_subvector;                                                    \
        static constexpr auto reverse = Record##_reverse;                                                              \
        static constexpr auto clear = Record##_set_zero;                                                               \
        static constexpr auto get = Record##_get;                                                                      \
        static constexpr auto set = Record##_set;                                                                      \
    }

FUZZ_FAMILY(uint8_family, kom_vector_uint8, uint8_t, 1);
FUZZ_FAMILY(double_family, kom_vector, double, 1);
FUZZ_FAMILY(complex_family, kom_vector_complex, double, 2);

// Reads and writes one element, if there is one.
template <typename F> void touch(typename F::record* v, uint32_t i)
{
    if constexpr (F::PARTS == 2) {
        const kom_complex z = F::get(v, i);
        F::set(v, i, z.re + 1, z.im - 1);
    } else {
        F::set(v, i, static_cast<typename F::element>(F::get(v, i) + 1));
    }
}

struct run {
    uint32_t offset;
    uint32_t stride;
    uint32_t count;

    // The rule of every operation that copies, without wrapping.
    bool fits(uint32_t length) const
    {
        return stride != 0 && count != 0 && offset + uint64_t{count - 1} * stride < length;
    }
};

run take_run(fuzz_input* in) { return {in->argument(), in->argument(), in->argument()}; }

template <typename F> void use_views(fuzz_input* in, const std::vector<typename F::element>& array, uint32_t length)
{
    const run r = take_run(in);
    typename F::record view = F::view(array.data(), length, r.offset, r.stride, r.count);
    // A view is checked in wrapping arithmetic, as documented; what wrapped is the caller's own to leave alone.
    if (view.data == nullptr || (r.count != 0 && !r.fits(length))) {
        return;
    }
    FUZZ_CHECK(view.size == r.count && view.stride == r.stride && view.owner == 0);
    touch<F>(&view, in->argument());
    F::reverse(&view);
    const run inner = take_run(in);
    typename F::record part = F::subvector(&view, inner.offset, inner.stride, inner.count);
    if (part.data != nullptr && inner.fits(view.size)) {
        touch<F>(&part, in->argument());
        F::clear(&part);
        const typename F::pointer copied{F::from_vector(&part, 0, part.size, 1)};
        FUZZ_CHECK(copied || allocation_failed());
    }
    F::release(&view);
}

template <typename F> void call_vectors(fuzz_input* in)
{
    const uint32_t length = in->below(100);
    std::vector<typename F::element> array(size_t{F::PARTS} * length);
    for (auto& value : array) {
        value = static_cast<typename F::element>(in->byte());
    }
    using pointer = typename F::pointer;
    const run a = take_run(in);
    const pointer made{F::from_array(array.data(), length, a.offset, a.stride, a.count)};
    FUZZ_CHECK(made ? a.fits(length) && made->size == a.count : !a.fits(length) || allocation_failed());
    const pointer whole{F::from_array(array.data(), length, 0, 1, length)};
    const run from = take_run(in);
    const pointer derived{F::from_vector(whole.get(), from.offset, from.count, from.stride)};
    FUZZ_CHECK(!derived || from.fits(length));
    const run to = take_run(in);
    const uint32_t copied = F::copy(made.get(), to.offset, to.stride, whole.get(), from.offset, from.stride, to.count);
    FUZZ_CHECK(copied == 0 || (copied == to.count && to.fits(made->size)));
    F::copy(whole.get(), to.offset, to.stride, whole.get(), from.offset, from.stride, to.count);
    use_views<F>(in, array, length);
    touch<F>(whole.get(), in->argument());
    touch<F>(nullptr, 0);
}

} // namespace

void call_bytes(fuzz_input* in) { call_vectors<uint8_family>(in); }

void call_doubles(fuzz_input* in) { call_vectors<double_family>(in); }

void call_complex(fuzz_input* in) { call_vectors<complex_family>(in); }

void call_complex_only(fuzz_input* in)
{
    using reals_ptr = owned<kom_vector, kom_vector_free>;
    using complex_ptr = owned<kom_vector_complex, kom_vector_complex_free>;
    const uint32_t length = in->below(64);
    std::vector<double> array(length);
    for (double& value : array) {
        value = in->take<double>();
    }
    kom_vector reals = kom_vector_const_view_array(array.data(), length, 0, 1, length);
    kom_vector pairs_of = kom_vector_const_view_array(array.data(), length, 0, 2, length / 2);
    const complex_ptr z{kom_vector_complex_real_to_complex(&reals)};
    const complex_ptr y{kom_vector_complex_real_to_complex(in->byte() % 2 == 0 ? &reals : &pairs_of)};
    const bool divides = z && y && z->size == y->size;
    FUZZ_CHECK((kom_vector_complex_div_inplace(z.get(), y.get()) == 0) == divides);
    kom_vector_complex_conj(z.get());
    const reals_ptr real{kom_vector_complex_real(z.get())};
    const reals_ptr imaginary{kom_vector_complex_imag(z.get())};
    FUZZ_CHECK(!real || real->size == z->size);
}

// The queue against a plain model of it.
void call_queue(fuzz_input* in)
{
    const uint32_t capacity = in->byte();
    const owned<vector, vector_free> queue{vector_init(capacity)};
    FUZZ_CHECK(queue ? capacity != 0 : capacity == 0 || allocation_failed());
    std::deque<double> model;
    for (uint32_t left = queue ? in->take<uint16_t>() % 1000 : 0; left > 0; --left) {
        const uint32_t op = in->byte();
        const auto index = static_cast<int32_t>(in->argument());
        const int64_t at = index < 0 ? index + static_cast<int64_t>(model.size()) : index;
        const bool inside = at >= 0 && at < static_cast<int64_t>(model.size());
        if (op < 128) {
            FUZZ_CHECK(vector_push_back(queue.get(), left) == (model.size() < capacity));
            if (model.size() < capacity) {
                model.push_back(left);
            }
        } else if (op < 160) {
            const auto n = std::min<size_t>(static_cast<uint32_t>(index), model.size());
            FUZZ_CHECK(vector_remove_front(queue.get(), static_cast<uint32_t>(index)) == n);
            model.erase(model.begin(), model.begin() + static_cast<ptrdiff_t>(n));
        } else if (op < 192) {
            FUZZ_CHECK(vector_set(queue.get(), index, op) == inside);
            if (inside) {
                model[static_cast<size_t>(at)] = op;
            }
        } else if (op < 224) {
            FUZZ_CHECK(vector_at(queue.get(), index) == (inside ? model[static_cast<size_t>(at)] : 0.0));
        } else {
            const uint32_t count = in->argument();
            const double* const view = vector_view(queue.get(), index, count);
            FUZZ_CHECK((view != nullptr) == (inside && count <= static_cast<int64_t>(model.size()) - at));
            FUZZ_CHECK(view == nullptr || std::equal(view, view + count, model.begin() + at));
        }
        FUZZ_CHECK(vector_size(queue.get()) == model.size() &&
                   vector_back(queue.get()) == (model.empty() ? 0.0 : model.back()));
    }
}
