// The native side of js_ratio.mjs: receive_file SAMPLES.s16 BLOCK MODE receives a file of 16-bit samples in blocks of
// so many, with the second look off (0) or measuring (2), and prints seconds and messages.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

#include <kosc/kosc.hpp>

int main(int argc, char** argv)
{
    if (argc != 4) {
        return 2;
    }
    std::ifstream file{argv[1], std::ios::binary};
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    std::vector<int16_t> sound(bytes.size() / sizeof(int16_t));
    std::copy_n(bytes.data(), sound.size() * sizeof(int16_t), reinterpret_cast<char*>(sound.data()));
    const auto block = static_cast<size_t>(std::atoi(argv[2]));

    soundcomm_set_log_level(0);
    const kosc::context_ptr ctx = kosc::make_receiving_context(static_cast<uint32_t>(std::atoi(argv[3])));
    if (!ctx) {
        return 1;
    }
    result_set_t counts{};
    const auto start = std::chrono::steady_clock::now();
    for (size_t at = 0; at < sound.size(); at += block) {
        soundcomm_receive(ctx.get(), &sound[at], static_cast<uint32_t>(std::min(block, sound.size() - at)), &counts);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::printf("%.6f %u\n", taken.count(), counts.correct.count);
    return 0;
}
