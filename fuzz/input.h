// Reads numbers off the front of a fuzzer's input; behind its end everything reads as zero.
#ifndef KOSC_FUZZ_INPUT_H
#define KOSC_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

class fuzz_input {
public:
    fuzz_input(const uint8_t* data, size_t size) : next_(data), left_(size) {}

    bool more() const { return left_ != 0; }

    uint8_t byte()
    {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *next_++;
    }

    // A number of type T, lowest byte first on every machine.
    template <typename T> T take()
    {
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i) {
            bits |= uint64_t{byte()} << (8 * i);
        }
        if constexpr (std::is_integral_v<T>) {
            return static_cast<T>(bits);
        } else {
            T value;
            static_assert(sizeof(value) == sizeof(bits), "doubles only");
            std::memcpy(&value, &bits, sizeof(value));
            return value;
        }
    }

    uint32_t below(uint32_t limit) { return take<uint16_t>() % limit; }

    // An argument: most often small, else one that lies near a power of two, or any.
    uint32_t argument()
    {
        const uint32_t kind = byte();
        switch (kind % 4) {
        case 0:
            return take<uint32_t>();
        case 1:
            return (uint32_t{1} << (byte() % 32)) + kind / 4 % 8 - 4;
        default:
            return byte();
        }
    }

    // A block of exactly `count` bytes of its own, so that reading past its end is seen.
    std::vector<uint8_t> bytes(size_t count)
    {
        std::vector<uint8_t> block(count);
        for (uint8_t& value : block) {
            value = byte();
        }
        block.shrink_to_fit();
        return block;
    }

private:
    const uint8_t* next_;
    size_t left_;
};

// Stops the run with the condition that did not hold; a plain assert would be compiled out of release builds.
#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                        \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

#endif
