// The coding steps and the containers with any arguments: the input is a list of calls.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "container_calls.h"
#include "failing_malloc.h"
#include "input.h"
#include "kosc/core.h"
#include "log_sink.h"
#include "owned.h"

namespace {

using octets = std::vector<uint8_t>;

using bytes_ptr = owned<kom_vector_uint8, kom_vector_uint8_free>;

constexpr uint32_t MOST_BYTES = 600; // of one call's data
constexpr int MOST_CALLS = 40;

octets take_block(fuzz_input* in) { return in->bytes(in->below(MOST_BYTES)); }

octets take_bits(fuzz_input* in, size_t count)
{
    octets bits(count);
    for (size_t i = 0; i < count; i += 8) {
        const uint32_t packed = in->byte();
        for (size_t j = i; j < count && j < i + 8; ++j) {
            bits[j] = packed >> (j - i) & 1;
        }
    }
    return bits;
}

bytes_ptr to_vector(const octets& block)
{
    const auto size = static_cast<uint32_t>(block.size());
    return bytes_ptr{kom_vector_uint8_alloc_from_array(block.data(), size, 0, 1, size)};
}

bool same(const kom_vector_uint8* v, const octets& expected)
{
    return v->size == expected.size() && std::equal(expected.begin(), expected.end(), v->data);
}

void call_crc(fuzz_input* in)
{
    const crc_cfg cfg = {in->argument(), 1 + in->below(64), in->byte() % 3U};
    const octets data = take_block(in);
    const auto size = static_cast<uint32_t>(data.size());
    uint8_t low_first[2];
    FUZZ_CHECK(!data.empty() == crc16(low_first, data.data(), size) || data.data() != nullptr);
    FUZZ_CHECK(!crc16(nullptr, data.data(), size));
    // The data hold the parts and, between them, their CRCs.
    const uint64_t crcs = cfg.put_crc == KOSC_CRC_AFTER_EVERY_PART ? uint64_t{cfg.bits / 8} * cfg.group : 0;
    if (crcs <= size) {
        octets written(size_t{2} * cfg.group);
        const uint32_t length = calculate_crc(data.data(), size - static_cast<uint32_t>(crcs), &cfg, written.data());
        FUZZ_CHECK(length == 0 || length == cfg.group * (cfg.bits / 8));
    }
    // A CRC behind its data leaves nothing in the register.
    if (crc16(low_first, data.data(), size)) {
        FUZZ_CHECK(crc_update(crc_update(0xFFFF, data.data(), size), low_first, 2) == 0);
    }
}

void call_bits(fuzz_input* in)
{
    const octets block = take_block(in);
    const bytes_ptr bytes = to_vector(block);
    const bytes_ptr packed{vector_binary_to_byte(bytes.get())};
    FUZZ_CHECK(!packed || packed->size == block.size() / 8);
    const bytes_ptr bits{vector_byte_to_binary(bytes.get())};
    const bytes_ptr back{vector_binary_to_byte(bits.get())};
    FUZZ_CHECK(!back || same(back.get(), block));
    FUZZ_CHECK((bytes && back) || block.empty() || allocation_failed());
}

void call_block_code(fuzz_input* in)
{
    const octets bits = take_bits(in, 2 * in->below(100));
    const bytes_ptr word{encode82(to_vector(bits).get())};
    if (word) {
        for (uint32_t wrong = in->byte() % 3; wrong > 0 && word->size != 0; --wrong) {
            word->data[in->byte() % 8] ^= 1; // of the first code word
        }
        const bytes_ptr decoded{decode82(word.get())};
        FUZZ_CHECK(decoded ? same(decoded.get(), bits) : allocation_failed());
    }
    // Any matrix, with the rows that n and k ask for.
    const uint32_t n = in->byte() % 12;
    const uint32_t k = in->byte() % 12;
    const bytes_ptr any = to_vector(take_block(in));
    const octets generator = in->bytes(size_t{n} * k);
    const bytes_ptr coded{linear_encode(any.get(), generator.data(), n, k)};
    FUZZ_CHECK(!coded || coded->size == any->size / k * n);
    const uint32_t parity = n > k ? n - k : 0;
    const octets leaders = take_bits(in, (size_t{1} << parity) * n);
    const octets check = in->bytes(size_t{n} * parity);
    const bytes_ptr plain{syndrome_decode(any.get(), leaders.data(), check.data(), n, k)};
    FUZZ_CHECK(!plain || plain->size == any->size / n * k);
    FUZZ_CHECK(linear_encode(any.get(), nullptr, in->argument(), k) == nullptr);
}

using code_ptr = owned<conv_code_t, conv_code_release>;
using data_ptr = std::unique_ptr<uint8_t, releaser<free>>;

code_ptr take_code(fuzz_input* in)
{
    // The built-in code has a decoder of its own, so every other input should take it.
    if (in->byte() % 2 == 0) {
        const conv_code_cfg& built_in = soundcomm_default_cfg()->channel_code_cfg.paras.conv;
        return code_ptr{conv_code_init(built_in.constraint, built_in.polynomials, 1 + in->byte() % 3)};
    }
    uint32_t constraint = in->argument();
    constraint = constraint >= 12 && constraint <= 24 ? 11 : constraint; // longer ones take their time
    std::vector<uint32_t> polynomials(1 + in->byte() % 10);
    for (uint32_t& polynomial : polynomials) {
        polynomial = in->byte() % 8 == 0 ? in->argument() : in->take<uint16_t>() % (1U << std::min(constraint, 16U));
    }
    return code_ptr{conv_code_init(constraint, polynomials.data(), static_cast<uint32_t>(polynomials.size()))};
}

// Received values of any kind through both decoders.
void decode_any(fuzz_input* in, const conv_code_t* code, uint32_t steps)
{
    octets received = in->bytes(size_t{steps} * code->polynomial_num + in->byte() % 2);
    const bool bits_only = in->byte() % 2 == 0;
    std::vector<double> soft;
    for (uint8_t& value : received) {
        value = bits_only && value != HOLE ? value & 1 : value;
        soft.push_back(value == HOLE ? in->take<double>() : value - 100.0);
    }
    const auto length = static_cast<uint32_t>(received.size());
    const conv_data_t path = conv_code_decode_hard(code, received.data(), length, in->byte() % 2 == 0);
    const data_ptr hold{path.data};
    FUZZ_CHECK(path.data == nullptr || path.len == length / code->polynomial_num);
    const uint32_t most = in->byte();
    const owned<soft_viterbi_t, soft_viterbi_free> decoder{soft_viterbi_init(code, most)};
    octets bits(steps);
    const bool decoded = soft_viterbi_decode(decoder.get(), soft.data(), steps, bits.data());
    FUZZ_CHECK(!decoded || (steps <= most && steps + 1 >= code->constraint));
    FUZZ_CHECK(!decoded || code->constraint == 1 ||
               std::none_of(bits.end() - (code->constraint - 1), bits.end(), [](uint8_t b) { return b != 0; }));
}

void call_conv_code(fuzz_input* in)
{
    const code_ptr code = take_code(in);
    FUZZ_CHECK(conv_code_encode_length(nullptr, 9) == 0);
    if (!code) {
        return;
    }
    const octets bits = take_bits(in, in->byte());
    const auto size = static_cast<uint32_t>(bits.size());
    conv_code_encode_length(code.get(), in->argument());
    const conv_data_t coded = conv_code_encode(code.get(), bits.data(), size);
    const data_ptr hold{coded.data};
    FUZZ_CHECK(coded.len == (coded.data != nullptr ? conv_code_encode_length(code.get(), size) : 0));
    if (coded.data != nullptr) {
        const conv_data_t path = conv_code_decode_hard(code.get(), coded.data, coded.len, true);
        const data_ptr hold_path{path.data};
        FUZZ_CHECK(path.data == nullptr || path.len == size + code->constraint - 1);
        // What was decoded is encoded as it was received: the distance of the best path is zero.
        if (path.data != nullptr && code->constraint <= 8) {
            const conv_data_t again = conv_code_encode(code.get(), path.data, size);
            const data_ptr hold_again{again.data};
            FUZZ_CHECK(again.data == nullptr || std::equal(coded.data, coded.data + coded.len, again.data));
        }
    }
    decode_any(in, code.get(), in->byte() % 40);
}

void call_puncture(fuzz_input* in)
{
    const bool any = in->byte() % 4 == 0;
    const uint32_t total = any ? in->argument() : in->below(MOST_BYTES);
    const uint32_t kept = any ? in->argument() : total - in->byte() % (total / 2 + 1);
    const owned<punch_template_t, free_punch_template> t{get_punch_template(total, kept)};
    if (!t || total > MOST_BYTES) {
        return;
    }
    const octets data = take_bits(in, total);
    octets sent(kept);
    octets received(total);
    FUZZ_CHECK(punch_code(t.get(), data.data(), total, sent.data(), kept));
    FUZZ_CHECK(depunch_code(t.get(), sent.data(), kept, received.data(), total));
    octets marked = data;
    FUZZ_CHECK(punch_code_inplace(t.get(), marked.data(), total));
    for (uint32_t i = 0; i < total; ++i) {
        FUZZ_CHECK(received[i] == HOLE || received[i] == data[i]);
    }
    FUZZ_CHECK(!punch_code(t.get(), data.data(), in->argument() % total, sent.data(), kept));
    FUZZ_CHECK(!depunch_code(t.get(), sent.data(), in->argument() % kept, received.data(), total));
}

void call_interleaver(fuzz_input* in)
{
    const octets block = take_block(in);
    const uint32_t stride = in->argument();
    const bytes_ptr straight = to_vector(block);
    const bytes_ptr spread{interleaver_encode(straight.get(), stride)};
    const bytes_ptr back{interleaver_decode(spread.get(), stride)};
    const bytes_ptr other{interleaver_decode(straight.get(), stride)};
    FUZZ_CHECK(!spread || spread->size == block.size());
    if (straight && stride != 0 && block.size() % stride == 0) {
        FUZZ_CHECK(back ? same(back.get(), block) : allocation_failed());
    }
}

void (*const CALLS[])(fuzz_input*) = {call_crc,      call_bits,         call_block_code, call_conv_code,
                                      call_puncture, call_interleaver,  call_bytes,      call_doubles,
                                      call_complex,  call_complex_only, call_queue};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_input in(data, size);
    const uint32_t settings = in.byte();
    set_up_log(settings % 5, false, false);
    fail_allocations(&in, settings >= 128);
    for (int left = MOST_CALLS; left > 0 && in.more(); --left) {
        CALLS[in.byte() % std::size(CALLS)](&in);
    }
    allow_allocations();
    return 0;
}
