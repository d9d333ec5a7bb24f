// The copies without the removed bits and with holes in their place; the templates are in puncture.cpp.
#include "kosc/puncture.h"

#include <algorithm>

#include "coding/code_constants.h"
#include "coding/permute.h"
#include "platform/bounded.h"

using namespace kosc;

bool punch_code(const punch_template_t* t, const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_len)
{
    if (t == nullptr || in == nullptr || out == nullptr || in_len != t->total_len || out_len != t->kept_len ||
        t->step == 0) {
        return false;
    }
    // What lies between two removed positions is copied at once.
    uint32_t kept = 0;
    uint64_t removed = t->offset;
    for (uint64_t from = 0; from < in_len && kept < out_len; from = removed + 1, removed += t->step) {
        const auto run = static_cast<uint32_t>(std::min<uint64_t>(removed, in_len) - from);
        std::copy_n(in + from, std::min(run, out_len - kept), out + kept);
        kept += std::min(run, out_len - kept);
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
    depuncture(*t, in, HOLE_MARKER, out);
    return true;
}
