#include "kosc/puncture.h"

#include "coding/code_constants.h"
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

uint8_t hole(void) { return HOLE_MARKER; }
