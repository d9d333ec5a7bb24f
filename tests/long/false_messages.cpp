// Plays sounds that hold no message to a default receiver and to one with the second look on. Prints what they took for
// a frame, and fails when a message comes out. With --one just the latter listens: it decodes at first as the default
// one does, so it delivers whatever that would. Both listen in one band. With --crowd the latter expects a crowd, and
// cancels what it hears; with --combine it adds up repeats, and what a second microphone hears.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "listener.h"
#include "noises.h"
#include "non_signals.h"

namespace {

constexpr size_t SEGMENT = size_t{1} << 17; // 2.7 seconds
constexpr uint32_t BLOCK = 4096;
constexpr double MUSIC_SECONDS = 60;
constexpr double SEGMENTS_AN_HOUR = 3600.0 * 48000 / SEGMENT;

struct counts {
    uint64_t candidates, rejects, attempts, messages;
};

// Of what a listener has heard since the last call. Half a frame can be enough for what it carried, where a crowd is
// expected: that message is no false one.
counts take(const sound_source& source, listener* heard)
{
    counts sum{};
    for (const noted_frame& frame : heard->take()) {
        const auto& sent = source.spoilt;
        const bool is_false = frame.decoded && std::find(sent.begin(), sent.end(), frame.message) == sent.end();
        sum.candidates += 1;
        sum.rejects += frame.decoded ? 0 : 1;
        sum.attempts += frame.attempts;
        sum.messages += is_false ? 1 : 0;
        if (frame.decoded) {
            std::printf(is_false ? "a message at sample %llu:" : "what a spoilt frame carried, at sample %llu:",
                        static_cast<unsigned long long>(frame.sample));
            std::for_each(frame.message.begin(), frame.message.end(), [](uint8_t byte) { std::printf(" %02x", byte); });
            std::printf(" (%s)\n", frame.needed ? "second look" : "at once");
        }
    }
    return sum;
}

void print(const char* name, double hours, const counts& plain, const counts& deep)
{
    std::printf("%-27s %9.3f %11llu %11llu %11llu %11llu %9llu\n", name, hours,
                static_cast<unsigned long long>(plain.candidates), static_cast<unsigned long long>(plain.rejects),
                static_cast<unsigned long long>(deep.rejects), static_cast<unsigned long long>(deep.attempts),
                static_cast<unsigned long long>(plain.messages + deep.messages));
}

void add(counts* sum, const counts& more)
{
    sum->candidates += more.candidates;
    sum->rejects += more.rejects;
    sum->attempts += more.attempts;
    sum->messages += more.messages;
}

} // namespace

int main(int argc, char** argv)
{
    const auto is_set = [&](const char* option) {
        const bool set = argc > 1 && argv[1] == std::string(option);
        argc -= set ? 1 : 0;
        argv += set ? 1 : 0;
        return set;
    };
    const bool one = is_set("--one");
    const uint32_t crowd = is_set("--crowd") ? KOSC_CROWD_CANCEL : KOSC_CROWD_OFF;
    const uint32_t combining = is_set("--combine") ? KOSC_COMBINING_TOGETHER : KOSC_COMBINING_OFF;
    if (argc < 4) {
        std::fputs("usage: kosc_false_messages [--one] [--crowd] [--combine] BAND HOURS SEED [SPEECH.wav...]\n",
                   stderr);
        return EXIT_FAILURE;
    }
    log_level = KOSC_LEVEL_ERROR;
    const soundcomm_cfg_t cfg = configuration_of(argv[1]);
    const double hours = std::atof(argv[2]);
    const uint64_t seed = std::strtoull(argv[3], nullptr, 10);
    listener plain{KOSC_SECOND_LOOK_OFF, cfg};
    listener deep{KOSC_SECOND_LOOK_ON, cfg};
    listener other{KOSC_SECOND_LOOK_ON, cfg}; // a second microphone, which hears the same: that adds up most
    if (!soundcomm_config_crowd(deep.context(), crowd) ||
        !soundcomm_config_combining(deep.context(), other.context(), combining)) {
        return EXIT_FAILURE;
    }
    sound_source source{kosc_link::random_source{0}, plain.context()->tx_paras, {}};
    source.random = kosc_link::random_source{seed};
    source.music = kosc_link::make_music(MUSIC_SECONDS, &source.random);
    for (int i = 4; i < argc; ++i) {
        const std::vector<int16_t> speech = read_speech(argv[i]);
        source.speech.insert(source.speech.end(), speech.begin(), speech.end());
    }
    std::printf("%-27s %9s %11s %11s %11s %11s %9s\n", "", "hours", "candidates", "rejected", "2nd look", "attempts",
                "messages");
    counts plain_sum{};
    counts deep_sum{};
    double heard = 0;
    kosc_link::signal sound;
    uint64_t kind_seed = seed << 40;
    for (const sound_kind& kind : sound_kinds()) {
        kind_seed += uint64_t{1} << 32;
        if (kind.is_speech && source.speech.empty()) {
            continue;
        }
        const auto segments = static_cast<uint32_t>(hours * SEGMENTS_AN_HOUR * kind.share / 100) + 1;
        for (uint32_t i = 0; i < segments; ++i) {
            source.random = kosc_link::random_source{kind_seed + i};
            sound.assign(SEGMENT, 0.0);
            kind.fill(&sound, &source);
            const std::vector<int16_t> pcm = to_samples(sound);
            for (size_t at = 0; at < SEGMENT; at += BLOCK) {
                one ? void() : plain.hear(&pcm[at], BLOCK);
                deep.hear(&pcm[at], BLOCK);
                combining == KOSC_COMBINING_TOGETHER ? other.hear(&pcm[at], BLOCK) : void();
            }
        }
        crowd == KOSC_CROWD_OFF ? source.spoilt.clear() : void(); // there none has ever been heard
        const counts found = take(source, &plain);
        counts found_deep = take(source, &deep);
        add(&found_deep, take(source, &other));
        source.spoilt.clear();
        print(kind.name, segments / SEGMENTS_AN_HOUR, found, found_deep);
        add(&plain_sum, found);
        add(&deep_sum, found_deep);
        heard += segments / SEGMENTS_AN_HOUR;
    }
    print("all", heard, plain_sum, deep_sum);
    const uint64_t chances = plain_sum.candidates + deep_sum.candidates + deep_sum.attempts +
                             soundcomm_get_combining_counts(deep.context()).attempts;
    std::printf("%llu comparisons with two CRCs of 16 bits: %.1e false messages are expected\n",
                static_cast<unsigned long long>(chances), static_cast<double>(chances) * 0x1p-32);
    return plain_sum.messages + deep_sum.messages == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
