// Frames of any band as raw 16-bit mono sound at 48 kHz, for whatever lies between a sender and a receiver:
//
//     band_frames write BAND COUNT GAP     writes COUNT frames, each followed by GAP seconds of silence and a bit
//     band_frames read BAND COUNT          reads them again and counts: heard at once, with the second look, false
//
// BAND is what `kosc --band` takes. Message n is the same in every run, and frames lie at times that no block of a
// codec is tuned to.
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <set>
#include <string>

#include "kosc/kosc.hpp"

namespace {

constexpr uint32_t LEAD_IN = kosc::SAMPLE_RATE / 2; // codecs need some sound to settle
constexpr double JITTER = 0.02;                     // seconds that a gap may be longer

std::string message(std::mt19937* random)
{
    std::string bytes(kosc::MESSAGE_BYTES, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>((*random)() >> 24);
    }
    return bytes;
}

bool play(const std::vector<int16_t>& sound)
{
    return std::fwrite(sound.data(), sizeof sound[0], sound.size(), stdout) == sound.size();
}

int write_frames(uint32_t first_subcarrier, int count, double gap)
{
    const auto encoder = kosc::encoder::make(first_subcarrier);
    std::mt19937 contents;
    std::mt19937 times;
    bool done = encoder && play(std::vector<int16_t>(LEAD_IN));
    for (int i = 0; i < count && done; ++i) {
        const double seconds = gap + JITTER * times() / std::mt19937::max();
        const auto frame = encoder->encode(message(&contents));
        done = frame && play(*frame) && play(std::vector<int16_t>(static_cast<size_t>(seconds * kosc::SAMPLE_RATE)));
    }
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

int read_frames(uint32_t first_subcarrier, int count)
{
    std::mt19937 contents;
    std::multiset<std::string> expected;
    for (int i = 0; i < count; ++i) {
        expected.insert(message(&contents));
    }
    kosc::receiver_settings settings;
    settings.first_subcarrier = first_subcarrier;
    settings.second_look = KOSC_SECOND_LOOK_ON;
    auto receiver = kosc::receiver::make(settings);
    int at_once = 0;
    int with_second_look = 0;
    int wrong = 0;
    const auto hear = [&](const kosc::heard& frame) {
        const auto sent = expected.find(std::string{frame.bytes()});
        if (sent == expected.end()) {
            ++wrong;
            return;
        }
        expected.erase(sent);
        at_once += frame.report.quality.needed ? 0 : 1;
        ++with_second_look;
    };
    int16_t block[4096];
    bool done = static_cast<bool>(receiver);
    for (size_t size = 1; size != 0 && done;) {
        size = std::fread(block, sizeof block[0], std::size(block), stdin);
        done = receiver->push(block, size, hear) == kosc::error::none;
    }
    done = done && receiver->finish(hear) == kosc::error::none;
    std::printf("%d %d %d\n", at_once, with_second_look, wrong);
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 3 ? argv[1] : "";
    ko_soundcommu_band_t band;
    log_level = KOSC_LEVEL_ERROR;
    if (!(what == "write" && argc == 5) && !(what == "read" && argc == 4)) {
        std::fputs("usage: band_frames write BAND COUNT GAP | band_frames read BAND COUNT\n", stderr);
        return EXIT_FAILURE;
    }
    if (ko_soundcommu_find_band(argv[2], &band) != 0) {
        return EXIT_FAILURE;
    }
    const int count = std::atoi(argv[3]);
    return what == "write" ? write_frames(band.first_subcarrier, count, std::atof(argv[4]))
                           : read_frames(band.first_subcarrier, count);
}
