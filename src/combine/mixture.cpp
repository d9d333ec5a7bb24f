#include "combine/mixture.h"

#include <algorithm>

#include "coding/conv_steps.h"
#include "kosc/crc.h"

namespace kosc {
namespace {

constexpr uint32_t HALF_BYTES = WEAK_MSG_LEN / CRC_PARTS;
constexpr uint32_t FIRST_CRC = WINDOWS - CRC_PARTS; // window of the first half's
constexpr uint32_t BYTE_BITS = 8;

// What tells a frame's agreement with the block from chance.
struct support {
    int sign[WEAK_BITS];        // of the block's code bits; 0 where none is sent
    double strength[MAX_GROUP]; // a frame's mean agreement of a bit
    double scale[MAX_GROUP];    // from a frame's sum of agreeing ratios to the logarithm of a likelihood
};

// Places of code bits in the order sent.
struct place_list {
    uint32_t count;
    uint32_t place[WEAK_BITS];
};

int agreeing(const weak_frame& frame, const support& s, const place_list& list)
{
    int sum = 0;
    for (uint32_t n = 0; n < list.count; ++n) {
        sum += s.sign[list.place[n]] * frame.llr[list.place[n]];
    }
    return sum;
}

// Ratios that were measured with a channel too little known promise too much. Of Gaussian ones with mean m and variance
// v, 2m/v of each is the logarithm.
support measure_support(const frame_group& group, const float* sign)
{
    support s{};
    std::copy_n(sign, WEAK_BITS, s.sign);
    for (uint32_t i = 0; i < group.count; ++i) {
        double sum = 0.0;
        double energy = 1.0;
        for (uint32_t j = 0; j < WEAK_BITS; ++j) {
            const int llr = group.frame[i]->llr[j];
            sum += s.sign[j] * llr;
            energy += llr * llr;
        }
        s.strength[i] = std::max(sum, 1.0) / WEAK_BITS;
        s.scale[i] = 2 * std::max(sum, 0.0) / std::max(energy - sum * sum / WEAK_BITS, 1.0);
    }
    return s;
}

// ln of the likelihood that each frame carries the block or, if that is likelier, the other bits at the places, over
// that all carry the block.
double gain_of(const frame_group& group, const support& s, const place_list& list)
{
    double gain = 0.0;
    for (uint32_t i = 0; i < group.count; ++i) {
        gain += std::max(-s.scale[i] * agreeing(*group.frame[i], s, list), 0.0);
    }
    return gain;
}

// The code bits around a byte of the block and around its half's CRC: where each is sent, and which of them change with
// the byte. The code is linear and so is the CRC: what each bit of the byte changes adds up without carry.
struct byte_changes {
    static constexpr uint32_t OF_BYTE = 42; // code bits that 8 bits and the encoder's memory take part in
    static constexpr uint32_t COUNT = 108;  // and 16 more with the memory
    static constexpr uint32_t WORD = 64;
    uint32_t place[COUNT];
    uint64_t changed[UINT8_MAX + 1][2]; // for each change of the byte
};

void encode_change(const soft_decoder& decoder, uint32_t first, const uint8_t* change, uint32_t bytes, uint32_t offset,
                   uint32_t* place, uint64_t* changed)
{
    const conv_code_t& code = *decoder.paras->conv_code;
    const uint32_t* const position = decoder.position + size_t{first} * code.polynomial_num;
    uint8_t bits[2 * BYTE_BITS];
    byte2bin(bits, change, bytes);
    conv_encode(code, bits, bytes * BYTE_BITS, [&](size_t j, uint8_t bit) {
        const size_t n = offset + j;
        place[n] = position[j];
        const bool is_sent = position[j] != NO_POSITION;
        changed[n / byte_changes::WORD] |= uint64_t{is_sent ? bit : uint8_t{0}} << n % byte_changes::WORD;
    });
}

void find_changes(const soft_decoder& decoder, uint32_t part, uint32_t byte, byte_changes* all)
{
    all->changed[0][0] = 0;
    all->changed[0][1] = 0;
    for (uint32_t value = 1; value <= UINT8_MAX; ++value) {
        const uint32_t others = value & (value - 1);
        uint64_t* const change_bits = all->changed[value];
        if (others != 0) {
            for (uint32_t w = 0; w < 2; ++w) {
                change_bits[w] = all->changed[others][w] ^ all->changed[value ^ others][w];
            }
            continue;
        }
        const uint8_t change[HALF_BYTES] = {static_cast<uint8_t>(value)}; // nothing behind it, to the half's end
        const uint16_t crc = crc_update(0, change, HALF_BYTES - byte);
        const uint8_t crc_change[] = {static_cast<uint8_t>(crc >> BYTE_BITS), static_cast<uint8_t>(crc)};
        change_bits[0] = 0;
        change_bits[1] = 0;
        encode_change(decoder, (part * HALF_BYTES + byte) * BYTE_BITS, change, 1, 0, all->place, change_bits);
        encode_change(decoder, (FIRST_CRC + part) * WINDOW_BITS, crc_change, sizeof crc_change, byte_changes::OF_BYTE,
                      all->place, change_bits);
    }
}

// The most that a half which differs in one byte gains.
double gain_of_a_byte(const frame_group& group, const support& s, uint32_t part, const soft_decoder& decoder)
{
    double most = 0.0;
    for (uint32_t byte = 0; byte < HALF_BYTES; ++byte) {
        byte_changes all;
        find_changes(decoder, part, byte, &all);
        for (const auto& changed : all.changed) {
            place_list list;
            list.count = 0;
            for (uint32_t w = 0; w < 2; ++w) {
                for (uint64_t rest = changed[w]; rest != 0; rest &= rest - 1) {
                    list.place[list.count++] =
                        all.place[w * byte_changes::WORD + static_cast<uint32_t>(__builtin_ctzll(rest))];
                }
            }
            most = std::max(most, gain_of(group, s, list));
        }
    }
    return most;
}

// The frames that agree less than others with a half's CRC, each for its strength.
void find_least_agreeing(const frame_group& group, const support& s, const bool* among, bool* chosen)
{
    place_list list;
    list.count = 0;
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        if (among[j]) {
            list.place[list.count++] = j;
        }
    }
    double share[MAX_GROUP];
    double mean = 0.0;
    for (uint32_t i = 0; i < group.count; ++i) {
        share[i] = agreeing(*group.frame[i], s, list) / s.strength[i];
        mean += share[i] / group.count;
    }
    for (uint32_t i = 0; i < group.count; ++i) {
        chosen[i] = share[i] < mean;
    }
}

// The most that any other half gains which the code finds: the likeliest for the frames that agree least, then for
// those that agree with that one. Each code bit that differs costs something, or noise would always find one.
double gain_at_will(const frame_group& group, const support& s, uint32_t part, group_decoder* d)
{
    constexpr int ROUNDS = 3;
    constexpr double COST = 0.3;
    constexpr double CERTAIN = 1000;
    bool open[WEAK_BITS] = {};
    mark_bits(part * HALF_BYTES * BYTE_BITS, HALF_BYTES * BYTE_BITS, d->decoder, open);
    mark_bits((FIRST_CRC + part) * WINDOW_BITS, WINDOW_BITS, d->decoder, open);
    bool chosen[MAX_GROUP];
    find_least_agreeing(group, s, d->crc_place[part], chosen);
    double most = 0.0;
    for (int round = 0; round < ROUNDS; ++round) {
        for (uint32_t j = 0; j < WEAK_BITS; ++j) {
            double sum = s.sign[j] * (open[j] ? COST : CERTAIN);
            for (uint32_t i = 0; i < group.count && open[j]; ++i) {
                sum += chosen[i] ? s.scale[i] * group.frame[i]->llr[j] : 0.0;
            }
            d->llr[j] = sum;
        }
        const decoded_block other = decode_soft({d->llr, WEAK_BITS, {}, {}}, &d->decoder);
        sign_block(other.bits, d->decoder, d->expected);
        place_list list;
        list.count = 0;
        for (uint32_t j = 0; j < WEAK_BITS; ++j) {
            if (static_cast<int>(d->expected[j]) != s.sign[j]) {
                list.place[list.count++] = j;
            }
        }
        if (list.count == 0) {
            break;
        }
        most = std::max(most, gain_of(group, s, list) - COST * list.count);
        for (uint32_t i = 0; i < group.count; ++i) {
            chosen[i] = agreeing(*group.frame[i], s, list) < 0;
        }
    }
    return most;
}

} // namespace

bool is_mixture(const frame_group& group, group_decoder* decoder)
{
    // About one right group in a hundred gains as much from noise. With more frames there are more ways to divide them.
    const double most_of_a_byte = 10.0 + group.count;
    constexpr double MOST_AT_WILL = 10;
    const support s = measure_support(group, decoder->sign);
    double of_a_byte = 0.0;
    double at_will = 0.0;
    for (uint32_t part = 0; part < CRC_PARTS; ++part) {
        of_a_byte += gain_of_a_byte(group, s, part, decoder->decoder);
        at_will += gain_at_will(group, s, part, decoder);
    }
    return of_a_byte > most_of_a_byte || at_will > MOST_AT_WILL;
}

} // namespace kosc
