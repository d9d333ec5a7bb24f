// Shares of messages delivered after so many repeats, by one microphone and by two, over simulated channels.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "noises.h"
#include "repeats.h"

using namespace kosc_link;

namespace {

double cpu_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

const std::map<std::string, difference> KINDS = {{"random", difference::RANDOM},
                                                 {"four-bytes", difference::FOUR_BYTES},
                                                 {"one-byte", difference::ONE_BYTE},
                                                 {"one-half", difference::ONE_HALF},
                                                 {"counter", difference::COUNTER}};

int usage()
{
    std::fprintf(stderr,
                 "usage: kosc_repeats_bench [NAME=VALUE]...\n"
                 "  channel=white|drift|echoes|room|walking...  from=DB to=DB step=DB trials=N seed=N repeats=N\n"
                 "  messages=N kind=random|four-bytes|one-byte|one-half|counter  gap=SAMPLES level=DB\n"
                 "  correlation=SHARE block=N block2=N clip=RMS clicks=DB speech=DB wav=FILE band=NAME plain=1\n"
                 "  noise=SECONDS: what combining costs and tries where there is nothing but noise\n");
    return 2;
}

// Time and attempts on white noise, in blocks of 20 ms, without and with combining.
int run_noise(double seconds, uint64_t seed)
{
    constexpr uint32_t BLOCK = 960;
    for (uint32_t channels = 1; channels <= 2; ++channels) {
        double spent[2] = {};
        combining_counts_t counts{};
        for (int on = 0; on < 2; ++on) {
            kosc::receiver_settings settings;
            settings.channels = channels;
            settings.combining = on == 0 ? uint32_t{KOSC_COMBINING_OFF} : channels;
            auto receiver = kosc::receiver::make(settings);
            random_source random{seed};
            std::vector<int16_t> block(BLOCK);
            for (double done = 0; done < seconds; done += BLOCK / double{kosc::SAMPLE_RATE}) {
                for (uint32_t c = 0; c < channels; ++c) {
                    for (int16_t& sample : block) {
                        sample = static_cast<int16_t>(500 * random.gaussian());
                    }
                    const double before = cpu_seconds();
                    receiver->push_channel(c, block.data(), BLOCK, [](const kosc::heard&) {});
                    spent[on] += cpu_seconds() - before;
                }
            }
            counts = soundcomm_get_combining_counts(receiver->context(0));
        }
        std::printf("%u microphones: receiver %.2f %%, combining %.2f %% of real time; a second %.2f candidates, %.2f "
                    "frames, %.3f attempts; %llu messages\n",
                    channels, 100 * spent[0] / seconds, 100 * (spent[1] - spent[0]) / seconds,
                    static_cast<double>(counts.candidates) / seconds, static_cast<double>(counts.frames) / seconds,
                    static_cast<double>(counts.attempts) / seconds, static_cast<unsigned long long>(counts.messages));
    }
    return 0;
}

void print_row(const repeat_setup& setup, double snr, uint32_t trials, uint64_t seed)
{
    constexpr uint32_t AFTER[] = {1, 2, 4, 8};
    uint32_t got[SYSTEMS][9] = {};
    uint32_t wrong[SYSTEMS] = {};
    unsigned long long refused = 0;
    unsigned long long messages = 0;
    for (uint32_t t = 0; t < trials; ++t) {
        const repeat_outcome outcome = run_repeats(setup, snr, seed + t);
        for (int s = 0; s < SYSTEMS; ++s) {
            for (const uint32_t first : outcome.first[s]) {
                for (const uint32_t after : AFTER) {
                    got[s][after] += first != 0 && first <= after ? 1 : 0;
                }
            }
            wrong[s] += outcome.wrong[s];
        }
        refused += outcome.counts[0].refused + outcome.counts[1].refused;
        messages += outcome.counts[0].messages + outcome.counts[1].messages;
    }
    std::printf("%6.1f |", snr);
    for (int s = setup.plain ? 0 : COMBINED_1; s < SYSTEMS; ++s) {
        for (const uint32_t after : AFTER) {
            if (after <= setup.repeats) {
                std::printf(" %5.1f", 100.0 * got[s][after] / (trials * setup.messages));
            }
        }
        std::printf(" |");
    }
    std::printf(" wrong %u %u %u %u, refused %llu, combined %llu\n", wrong[0], wrong[1], wrong[2], wrong[3], refused,
                messages);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    log_level = 0;
    std::map<std::string, std::string> words;
    for (int i = 1; i < argc; ++i) {
        const char* const equals = std::strchr(argv[i], '=');
        if (equals == nullptr) {
            return usage();
        }
        words[std::string(argv[i], static_cast<size_t>(equals - argv[i]))] = equals + 1;
    }
    const auto number = [&](const char* name, double otherwise) {
        return words.count(name) != 0 ? std::atof(words[name].c_str()) : otherwise;
    };
    const auto seed = static_cast<uint64_t>(number("seed", 1));
    if (words.count("noise") != 0) {
        return run_noise(number("noise", 60), seed);
    }
    repeat_setup setup;
    setup.channel = find_channel(words.count("channel") != 0 ? words["channel"] : "white");
    const std::string kind = words.count("kind") != 0 ? words["kind"] : "random";
    if (setup.channel == nullptr || KINDS.count(kind) == 0) {
        return usage();
    }
    setup.kind = KINDS.at(kind);
    setup.repeats = static_cast<uint32_t>(number("repeats", 8));
    setup.messages = static_cast<uint32_t>(number("messages", 1));
    setup.gap = static_cast<uint32_t>(number("gap", 3600));
    setup.second_level_db = number("level", 0);
    setup.noise_correlation = number("correlation", 0);
    setup.block = {static_cast<uint32_t>(number("block", 960)),
                   static_cast<uint32_t>(number("block2", number("block", 960)))};
    setup.clip_rms = number("clip", 0);
    setup.plain = number("plain", 0) != 0;
    signal speech;
    if (words.count("clicks") != 0) {
        setup.beside = disturbance::CLICKS;
        setup.beside_db = number("clicks", 0);
    } else if (words.count("speech") != 0) {
        speech = read_speech(words["wav"]);
        if (speech.empty()) {
            return usage();
        }
        setup.beside = disturbance::SPEECH;
        setup.beside_db = number("speech", 0);
        setup.speech = &speech;
    }
    if (words.count("band") != 0) {
        ko_soundcommu_band_t band;
        if (ko_soundcommu_find_band(words["band"].c_str(), &band) != 0) {
            return usage();
        }
        setup.first_subcarrier = band.first_subcarrier;
    }
    const auto trials = static_cast<uint32_t>(number("trials", 30));
    std::printf(
        "%s, %u trials, %u repeats of %u messages (%s)\n   dB  | percent delivered after 1, 2, 4, 8 repeats:%s one "
        "microphone | two\n",
        setup.channel->title.c_str(), trials, setup.repeats, setup.messages, kind.c_str(),
        setup.plain ? " second look alone | two |" : "");
    for (double snr = number("from", 0); snr >= number("to", -10) - 1e-9; snr -= number("step", 2)) {
        print_row(setup, snr, trials, seed);
    }
    return 0;
}
