#include "kosc/puncture.h"

#include "coding/code_constants.h"
#include "platform/bounded.h"

using namespace kosc;

namespace {

// Whether position i is one that the template removes; the step is not 0.
bool is_removed(const punch_template_t& t, uint32_t i) { return i >= t.offset && (i - t.offset) % t.step == 0; }

} // namespace

bool punch_code(const punch_template_t* t, const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_len)
{
    if (t == nullptr || in == nullptr || out == nullptr || in_len != t->total_len || out_len != t->kept_len ||
        t->step == 0) {
        return false;
    }
    uint32_t kept = 0;
    for (uint32_t i = 0; i < in_len && kept < out_len; ++i) {
        if (!is_removed(*t, i)) {
            out[kept++] = in[i];
        }
    }
    bounded_set(out + kept, out_len - kept, 0, out_len - kept);
    return true;
}

bool depunch_code(const punch_template_t* t, const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_len)
{
    if (t == nullptr || in == nullptr || out == nullptr || in_len != t->kept_len || out_len != t->total_len ||
        t->step == 0) {
        return false;
    }
    uint32_t read = 0;
    for (uint32_t i = 0; i < out_len; ++i) {
        const bool known = !is_removed(*t, i) && read < in_len;
        out[i] = known ? in[read++] : HOLE_MARKER;
    }
    return true;
}
