// Frames of any band as raw 16-bit mono sound at 48 kHz, for whatever lies between a sender and a receiver:
//
//     band_frames write BAND COUNT GAP [REPEATS]   writes COUNT messages, each as REPEATS frames, 1 when not given,
//                                                  with GAP seconds of silence and a bit behind each frame
//     band_frames read BAND COUNT                  reads them again and counts the messages that are heard at once,
//                                                  with the second look, and with combining too, and the false ones
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

int write_frames(uint32_t first_subcarrier, int count, double gap, int repeats)
{
    const auto encoder = kosc::encoder::make(first_subcarrier);
    std::mt19937 contents;
    std::mt19937 times;
    bool done = encoder && play(std::vector<int16_t>(LEAD_IN));
    for (int i = 0; i < count && done; ++i) {
        const auto frame = encoder->encode(message(&contents));
        done = static_cast<bool>(frame);
        for (int repeat = 0; repeat < repeats && done; ++repeat) {
            const double seconds = gap + JITTER * times() / std::mt19937::max();
            done = play(*frame) && play(std::vector<int16_t>(static_cast<size_t>(seconds * kosc::SAMPLE_RATE)));
        }
    }
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

int read_frames(uint32_t first_subcarrier, int count)
{
    std::mt19937 contents;
    std::set<std::string> sent;
    for (int i = 0; i < count; ++i) {
        sent.insert(message(&contents));
    }
    std::set<std::string> at_once;
    std::set<std::string> with_second_look;
    std::set<std::string> combined;
    std::set<std::string> wrong;
    kosc::receiver_settings settings;
    settings.first_subcarrier = first_subcarrier;
    settings.second_look = KOSC_SECOND_LOOK_ON;
    settings.combining = KOSC_COMBINING_EACH;
    auto receiver = kosc::receiver::make(settings);
    const auto hear = [&](const kosc::heard& frame) {
        const std::string bytes{frame.bytes()};
        if (sent.count(bytes) == 0) {
            wrong.insert(bytes);
            return;
        }
        combined.insert(bytes);
        if (frame.report.combined == nullptr) { // what a receiver without combining delivers, too
            with_second_look.insert(bytes);
            if (!frame.report.quality.needed) {
                at_once.insert(bytes);
            }
        }
    };
    int16_t block[4096];
    bool done = static_cast<bool>(receiver);
    for (size_t size = 1; size != 0 && done;) {
        size = std::fread(block, sizeof block[0], std::size(block), stdin);
        done = receiver->push(block, size, hear) == kosc::error::none;
    }
    done = done && receiver->finish(hear) == kosc::error::none;
    std::printf("%zu %zu %zu %zu\n", at_once.size(), with_second_look.size(), combined.size(), wrong.size());
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 3 ? argv[1] : "";
    ko_soundcommu_band_t band;
    log_level = KOSC_LEVEL_ERROR;
    if (!(what == "write" && (argc == 5 || argc == 6)) && !(what == "read" && argc == 4)) {
        std::fputs("usage: band_frames write BAND COUNT GAP [REPEATS] | band_frames read BAND COUNT\n", stderr);
        return EXIT_FAILURE;
    }
    if (ko_soundcommu_find_band(argv[2], &band) != 0) {
        return EXIT_FAILURE;
    }
    const int count = std::atoi(argv[3]);
    return what == "write"
               ? write_frames(band.first_subcarrier, count, std::atof(argv[4]), argc == 6 ? std::atoi(argv[5]) : 1)
               : read_frames(band.first_subcarrier, count);
}
