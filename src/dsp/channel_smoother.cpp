#include "kosc/channel_smoother.h"

#include <cmath>
#include <limits>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t MAX_SUBCARRIERS = 512;
constexpr double LEAST_SHARE = 1e-3; // of the power of one subcarrier: below it lies only what noise covers
constexpr int BISECTIONS = 60;       // halvings until an eigenvalue is known to double precision
constexpr int INVERSE_ITERATIONS = 3;

using smoother_ptr = owned<channel_smoother_t, channel_smoother_free>;

// Slepian's tridiagonal matrix T, which commutes with the correlation sinc((k - l)*width) and so shares its
// eigenvectors. The correlation's eigenvalues crowd near 1/width and near 0; those of T are well apart:
//     T(i, i) = ((n - 1)/2 - i)^2 * cos(pi*width),  T(i - 1, i) = i*(n - i)/2.
struct tridiagonal {
    uint32_t n;
    double cosine; // of pi times the spread's share of the symbol

    double diagonal(uint32_t i) const
    {
        const double centred = (static_cast<double>(n) - 1.0 - 2.0 * i) / 2.0;
        return centred * centred * cosine;
    }
    double beside(uint32_t i) const { return 0.5 * i * (static_cast<double>(n) - i); } // between i - 1 and i

    // How many eigenvalues lie above x: as many as pivots of T - x*I are positive (Sylvester's law of inertia; Sturm's
    // sequence). Source: Wilkinson 1965, "The algebraic eigenvalue problem".
    uint32_t count_above(double x) const
    {
        uint32_t count = 0;
        double pivot = 1.0;
        for (uint32_t i = 0; i < n; ++i) {
            const double b = i == 0 ? 0.0 : beside(i);
            pivot = diagonal(i) - x - b * b / pivot;
            pivot = pivot == 0.0 ? 1e-300 : pivot;
            count += pivot > 0.0 ? 1 : 0;
        }
        return count;
    }

    // The eigenvalue that has `rank` greater ones.
    double eigenvalue(uint32_t rank) const
    {
        double high = static_cast<double>(n) * n; // beyond every row sum
        double low = -high;
        for (int i = 0; i < BISECTIONS; ++i) {
            const double middle = (low + high) / 2;
            (count_above(middle) > rank ? low : high) = middle;
        }
        return (low + high) / 2;
    }

    // A pivot of elimination, kept away from zero by what rounding leaves of the matrix's largest elements: an
    // eigenvalue is known to that at best, and the shift may meet it to the last bit.
    double bounded(double pivot) const
    {
        const double least = std::numeric_limits<double>::epsilon() * n * n;
        return std::fabs(pivot) < least ? std::copysign(least, pivot) : pivot;
    }

    // One step of inverse iteration in place, by elimination without exchanges; `pivots` is a scratch row of n.
    void solve(double shift, double* v, double* pivots) const
    {
        pivots[0] = bounded(diagonal(0) - shift);
        for (uint32_t i = 1; i < n; ++i) {
            const double factor = beside(i) / pivots[i - 1];
            pivots[i] = bounded(diagonal(i) - shift - factor * beside(i));
            v[i] -= factor * v[i - 1];
        }
        v[n - 1] /= pivots[n - 1];
        for (uint32_t i = n - 1; i-- > 0;) {
            v[i] = (v[i] - beside(i + 1) * v[i + 1]) / pivots[i];
        }
    }
};

void normalise(double* v, uint32_t n)
{
    double energy = 0.0;
    for (uint32_t i = 0; i < n; ++i) {
        energy += v[i] * v[i];
    }
    const double factor = 1.0 / std::sqrt(energy);
    for (uint32_t i = 0; i < n; ++i) {
        v[i] *= factor;
    }
}

// The eigenvector with `rank` greater eigenvalues by inverse iteration: each step with (T - shift*I)^-1 raises it over
// the others by their eigenvalues' distances from the shift over its own. Source: likewise.
void find_sequence(const tridiagonal& matrix, uint32_t rank, double* v, double* pivots)
{
    const double shift = matrix.eigenvalue(rank);
    for (uint32_t i = 0; i < matrix.n; ++i) {
        v[i] = 1.0 + 0.3 * std::cos(2.7 * i * (rank + 1)); // neither even nor odd, so that no sequence is orthogonal
    }
    normalise(v, matrix.n);
    for (int i = 0; i < INVERSE_ITERATIONS; ++i) {
        matrix.solve(shift, v, pivots);
        normalise(v, matrix.n);
    }
}

// Whether the sequences found are orthonormal. They are real up to a factor that they share.
bool are_orthonormal(const channel_smoother_t& s)
{
    constexpr double TOLERANCE = 1e-9;
    for (uint32_t r = 0; r < s.rank; ++r) {
        for (uint32_t q = 0; q <= r; ++q) {
            const double* const a = s.basis + size_t{2} * s.sc_num * r;
            const double* const b = s.basis + size_t{2} * s.sc_num * q;
            double product = r == q ? -1.0 : 0.0;
            for (uint32_t k = 0; k < 2 * s.sc_num; ++k) {
                product += a[k] * b[k];
            }
            if (!(std::fabs(product) < TOLERANCE)) { // nor with NaN
                return false;
            }
        }
    }
    return true;
}

double sinc(double x) { return x == 0.0 ? 1.0 : std::sin(PI * x) / (PI * x); }

// Power of a unit response along the sequence v: v'Rv with the correlation R(i, k) = sinc((i - k)*width), summed lag by
// lag. For an eigenvector that is its eigenvalue.
double share_of(const double* v, uint32_t n, double width)
{
    double sum = 0.0;
    for (uint32_t lag = 0; lag < n; ++lag) {
        double product = 0.0;
        for (uint32_t i = 0; i + lag < n; ++i) {
            product += v[i] * v[i + lag];
        }
        sum += (lag == 0 ? 1.0 : 2.0) * sinc(lag * width) * product;
    }
    return sum;
}

} // namespace

channel_smoother_t* channel_smoother_init(uint32_t sc_num, uint32_t symbol_len, double spread)
{
    if (sc_num < 2 || sc_num > MAX_SUBCARRIERS || !(spread > 0.0) || !(spread < symbol_len)) {
        return nullptr;
    }
    smoother_ptr s{alloc_record<channel_smoother_t>()};
    const block_ptr<double> rows{alloc_array<double>(size_t{2} * sc_num)};
    if (!s || !rows) {
        return nullptr;
    }
    s->sc_num = sc_num;
    s->share = alloc_array<double>(sc_num);
    if (s->share == nullptr) {
        return nullptr;
    }
    const double width = spread / symbol_len;
    const tridiagonal matrix{sc_num, std::cos(PI * width)};
    double* const v = rows.get();
    for (; s->rank < sc_num; ++s->rank) {
        find_sequence(matrix, s->rank, v, v + sc_num);
        s->share[s->rank] = share_of(v, sc_num, width);
        if (s->share[s->rank] < LEAST_SHARE) {
            break;
        }
    }
    s->basis = alloc_array<double>(size_t{2} * sc_num * s->rank); // found twice: room is taken only for those there are
    if (s->basis == nullptr) {
        return nullptr;
    }
    for (uint32_t r = 0; r < s->rank; ++r) {
        find_sequence(matrix, r, v, v + sc_num);
        double* const row = s->basis + size_t{2} * sc_num * r;
        for (uint32_t k = 0; k < sc_num; ++k) {
            const double phase = -PI * width * k; // to the middle delay
            store(row, k, {v[k] * std::cos(phase), v[k] * std::sin(phase)});
        }
    }
    return s->rank != 0 && are_orthonormal(*s) ? s.release() : nullptr;
}

void channel_smoother_free(channel_smoother_t* smoother)
{
    if (smoother != nullptr) {
        std::free(smoother->share);
        std::free(smoother->basis);
        std::free(smoother);
    }
}

void channel_smoother_analyse(const channel_smoother_t* smoother, const double* response, double* coefficients)
{
    const uint32_t n = smoother->sc_num;
    for (uint32_t r = 0; r < smoother->rank; ++r) {
        const double* const row = smoother->basis + size_t{2} * n * r;
        kom_complex sum = {0.0, 0.0};
        for (uint32_t k = 0; k < n; ++k) {
            const kom_complex b = load(row, k);
            sum = sum + load(response, k) * kom_complex{b.re, -b.im};
        }
        store(coefficients, r, sum);
    }
}

// The linear minimum-mean-square estimate: along orthonormal sequences the coefficients are uncorrelated, with powers
// share(r), and each has the noise of one subcarrier, so that each is weighed by share / (share + noise).
void channel_smoother_synthesise(const channel_smoother_t* smoother, const double* coefficients, double noise_ratio,
                                 double* response)
{
    const uint32_t n = smoother->sc_num;
    for (uint32_t k = 0; k < n; ++k) {
        store(response, k, {0.0, 0.0});
    }
    for (uint32_t r = 0; r < smoother->rank; ++r) {
        const double* const row = smoother->basis + size_t{2} * n * r;
        const double weight = smoother->share[r] / (smoother->share[r] + noise_ratio);
        const kom_complex c = load(coefficients, r) * kom_complex{weight, 0.0};
        for (uint32_t k = 0; k < n; ++k) {
            store(response, k, load(response, k) + c * load(row, k));
        }
    }
}
