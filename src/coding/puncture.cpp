#include "kosc/puncture.h"

#include <algorithm>

#include "coding/code_constants.h"
#include "coding/permute.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t MIN_STEP = 2;

} // namespace

const uint8_t HOLE = HOLE_MARKER;

punch_template_t* get_punch_template(uint32_t total_len, uint32_t kept_len)
{
    if (kept_len >= total_len) {
        return nullptr; // nothing to remove, and the step below would divide by zero
    }
    const uint32_t removed_len = total_len - kept_len;
    const uint32_t step = total_len / removed_len;
    if (step < MIN_STEP) {
        return nullptr;
    }
    auto* t = alloc_record<punch_template_t>();
    if (t != nullptr) {
        *t = {total_len, kept_len, removed_len, step / 2, step};
    }
    return t;
}

void free_punch_template(punch_template_t* t) { std::free(t); }

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
    memset_s(out + kept, out_len - kept, 0, out_len - kept);
    return true;
}

bool punch_code_inplace(const punch_template_t* t, uint8_t* buf, uint32_t len)
{
    if (t == nullptr || buf == nullptr || len != t->total_len) {
        return false;
    }
    for (uint32_t j = 0; j < t->removed_len; ++j) {
        const uint64_t position = t->offset + uint64_t{j} * t->step;
        if (position >= len) {
            break;
        }
        buf[position] = HOLE_MARKER;
    }
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

uint8_t hole(void) { return HOLE_MARKER; }
