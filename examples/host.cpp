// A host in C++: messages become frames of sound in the voice band, and a stereo recording of them messages again.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <kosc/kosc.hpp>

int main()
{
    log_level = KOSC_LEVEL_WARN;
    ko_soundcommu_band_t band;
    if (ko_soundcommu_find_band("voice", &band) != 0) {
        return EXIT_FAILURE;
    }
    kosc::receiver_settings settings;
    settings.channels = 2;
    settings.first_subcarrier = band.first_subcarrier;
    settings.second_look = KOSC_SECOND_LOOK_ON;
    const auto encoder = kosc::encoder::make(band.first_subcarrier);
    auto receiver = kosc::receiver::make(settings);
    const auto frame = encoder ? encoder->encode("hello over sound") : encoder.why();
    if (!frame || !receiver) {
        std::fprintf(stderr, "host: %s\n", kosc::describe(frame ? receiver.why() : frame.why()));
        return EXIT_FAILURE;
    }
    // A real host plays the frame and feeds each block that it records; here channel 1 hears it after half a second.
    std::vector<int16_t> recording(2 * kosc::SAMPLE_RATE);
    for (size_t i = 0; i < frame->size(); ++i) {
        recording[2 * (kosc::SAMPLE_RATE / 2 + i) + 1] = (*frame)[i];
    }
    const auto print = [](const kosc::heard& message) {
        std::printf("%.3f s, channel %u: %.*s\n", message.seconds(), message.channel,
                    static_cast<int>(message.text().size()), message.text().data());
    };
    kosc::error failed = receiver->push(recording.data(), recording.size() / 2, print);
    failed = failed == kosc::error::none ? receiver->finish(print) : failed;
    return failed == kosc::error::none ? EXIT_SUCCESS : EXIT_FAILURE;
}
