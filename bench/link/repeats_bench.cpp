// Shares of messages delivered after so many repeats, by one microphone and by two, over simulated channels.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "curves.h"
#include "noises.h"
#include "repeats.h"

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's

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
                 "  lower=DB: how much further down two microphones are tried  plots=DIR: draws the curves there\n"
                 "  messages=N kind=random|four-bytes|one-byte|one-half|counter  gap=SAMPLES level=DB\n"
                 "  correlation=SHARE block=N block2=N clip=RMS clicks=DB speech=DB wav=FILE band=NAME plain=1\n"
                 "  conditions=DB: a table of conditions at one ratio, in which speech needs wav=FILE of espeak-ng\n"
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

constexpr uint32_t AFTER[] = {1, 2, 4, 8};
constexpr const char* NAMES[SYSTEMS] = {"second look, one microphone", "second look, two microphones", "one microphone",
                                        "two microphones"};

// What the trials at one ratio came to.
struct point {
    double snr_db = 0;
    std::array<bool, SYSTEMS> wanted{};
    uint32_t sent = 0;                            // messages
    uint32_t got[SYSTEMS][std::size(AFTER)] = {}; // after so many repeats
    uint32_t wrong[SYSTEMS] = {};
    combining_counts_t counts[2] = {};
};

void add(const repeat_outcome& came, point* p)
{
    p->sent += static_cast<uint32_t>(came.first[p->wanted[COMBINED_1] ? COMBINED_1 : COMBINED_2].size());
    for (int s = 0; s < SYSTEMS; ++s) {
        for (const uint32_t first : came.first[s]) {
            for (size_t i = 0; i < std::size(AFTER); ++i) {
                p->got[s][i] += first != 0 && first <= AFTER[i] ? 1 : 0;
            }
        }
        p->wrong[s] += came.wrong[s];
    }
    for (int i = 0; i < 2; ++i) {
        p->counts[i].frames += came.counts[i].frames;
        p->counts[i].attempts += came.counts[i].attempts;
        p->counts[i].refused += came.counts[i].refused;
        p->counts[i].messages += came.counts[i].messages;
    }
}

void run_trials(const repeat_setup& setup, uint32_t trials, uint64_t seed, std::vector<point>* points)
{
    for (uint32_t t = 0; t < trials; ++t) {
        const repeat_trial trial{setup, seed + t};
        for (point& p : *points) {
            add(trial.hear(p.snr_db, p.wanted), &p);
        }
    }
}

// A row of a table: percent after 1, 2, 4 and 8 repeats, of each system.
void print_row(const repeat_setup& setup, const char* name, const point& p)
{
    std::printf("| %s | %g |", name, p.snr_db);
    for (int s = setup.plain ? SECOND_LOOK_1 : COMBINED_1; s < SYSTEMS; ++s) {
        const char* separator = " ";
        for (size_t i = 0; i < std::size(AFTER) && AFTER[i] <= setup.repeats && p.wanted[s]; ++i) {
            std::printf("%s%.0f", separator, 100.0 * p.got[s][i] / p.sent);
            separator = " / ";
        }
        std::printf(" |");
    }
    std::printf(" %u |", p.wrong[0] + p.wrong[1] + p.wrong[2] + p.wrong[3]);
    for (const combining_counts_t& c : p.counts) {
        std::printf(" %llu %llu %llu %llu |", static_cast<unsigned long long>(c.frames),
                    static_cast<unsigned long long>(c.attempts), static_cast<unsigned long long>(c.refused),
                    static_cast<unsigned long long>(c.messages));
    }
    std::printf("\n");
    std::fflush(stdout);
}

void print_head(const repeat_setup& setup)
{
    std::printf("| | SNR, dB |");
    for (int s = setup.plain ? SECOND_LOOK_1 : COMBINED_1; s < SYSTEMS; ++s) {
        std::printf(" %s |", NAMES[s]);
    }
    std::printf(" wrong | one: frames, decodings, refused, delivered | two |\n|---|---|---|---|---|---|---|%s\n",
                setup.plain ? "---|---|" : "");
}

// The normal deviate below which `share` of all lie.
double deviate(double share)
{
    double low = -6;
    double high = 6;
    for (int i = 0; i < 50; ++i) {
        const double middle = (low + high) / 2;
        (std::erfc(-middle / std::sqrt(2.0)) / 2 < share ? low : high) = middle;
    }
    return low;
}

// The lowest ratio from which nine in ten are delivered; between two points the share is taken for the distribution of
// a normal variable, and half a message stands for none. NaN when no two points lie around it.
double nine_in_ten_db(const std::vector<point>& points, int s, size_t after)
{
    const auto deviate_at = [&](const point& p) {
        return deviate(std::clamp(1.0 * p.got[s][after], 0.5, p.sent - 0.5) / p.sent);
    };
    const double wanted = deviate(0.9);
    for (size_t i = 1; i < points.size(); ++i) { // from above
        const point& high = points[i - 1];
        const point& low = points[i];
        if (high.wanted[s] && low.wanted[s] && deviate_at(high) >= wanted && deviate_at(low) < wanted) {
            const double share = (wanted - deviate_at(low)) / (deviate_at(high) - deviate_at(low));
            return low.snr_db + share * (high.snr_db - low.snr_db);
        }
    }
    return std::nan("");
}

void print_levels(const repeat_setup& setup, const std::vector<point>& points)
{
    for (int s = setup.plain ? SECOND_LOOK_1 : COMBINED_1; s < SYSTEMS; ++s) {
        std::printf("90 %%, %s, after 1 / 2 / 4 / 8:", NAMES[s]);
        for (size_t i = 0; i < std::size(AFTER) && AFTER[i] <= setup.repeats; ++i) {
            std::printf(" %.2f", nine_in_ten_db(points, s, i));
        }
        std::printf(" dB\n");
    }
}

bool draw_levels(const repeat_setup& setup, const std::vector<point>& points, const std::string& dir)
{
    curve_plot picture = {dir + "/repeats-" + setup.channel->name + ".svg",
                          setup.channel->title + ": microphones, frames sent",
                          "SNR in the band, dB",
                          "messages lost",
                          "set logscale y\nset yrange [" + std::to_string(0.5 / points[0].sent) +
                              ":1.2]\nset key bottom left",
                          {}};
    for (const int s : {COMBINED_1, COMBINED_2}) {
        for (size_t i = 0; i < std::size(AFTER) && AFTER[i] <= setup.repeats; ++i) {
            curve_line line;
            line.title = (s == COMBINED_1 ? "one, " : "two, ") + std::to_string(AFTER[i]);
            line.style = (s == COMBINED_1 ? " dt 2 lc " : " lc ") + std::to_string(i + 1);
            for (const point& p : points) {
                const double lost = 1.0 - 1.0 * p.got[s][i] / p.sent;
                if (p.wanted[s]) {
                    line.points.emplace_back(p.snr_db, lost > 0.0 ? lost : std::nan("")); // a logarithm has no zero
                }
            }
            picture.lines.push_back(line);
        }
    }
    return draw(picture);
}

// What a receiver meets beside noise, or is asked to do.
struct condition {
    const char* name;
    void (*change)(repeat_setup* setup);
};

template <uint32_t First, uint32_t Second = First> void blocks(repeat_setup* setup) { setup->block = {First, Second}; }
template <int Level> void level(repeat_setup* setup) { setup->second_level_db = Level; }
template <int Percent> void alike(repeat_setup* setup) { setup->noise_correlation = Percent / 100.0; }

template <difference Kind> void in_turn(repeat_setup* setup)
{
    setup->messages = 2;
    setup->kind = Kind;
}

template <int HalfRms> void clipped(repeat_setup* setup) { setup->clip_rms = HalfRms / 2.0; }

template <disturbance What, int Db> void beside(repeat_setup* setup)
{
    setup->beside = What;
    setup->beside_db = Db;
}

template <uint32_t First> void band_from(repeat_setup* setup) { setup->first_subcarrier = First; }

constexpr condition CONDITIONS[] = {
    {"nothing else", [](repeat_setup*) {}},
    {"the second microphone 6 dB fainter", level<-6>},
    {"12 dB fainter", level<-12>},
    {"half of the noise's power common to both", alike<50>},
    {"90 % of it", alike<90>},
    {"blocks of 160", blocks<160>},
    {"blocks of 480", blocks<480>},
    {"blocks of 4096", blocks<4096>},
    {"blocks of 480 and of 512, which drift apart", blocks<480, 512>},
    {"blocks of 441 and of 4096", blocks<441, 4096>},
    {"two random messages in turn", in_turn<difference::RANDOM>},
    {"two that differ by four bytes", in_turn<difference::FOUR_BYTES>},
    {"two that differ by a counter, a byte in each half", in_turn<difference::COUNTER>},
    {"two that differ in one half", in_turn<difference::ONE_HALF>},
    {"clipped at the level of all that is heard", clipped<2>},
    {"clipped at half that level", clipped<1>},
    {"clicks as loud as the sender", beside<disturbance::CLICKS, 0>},
    {"clicks 10 dB louder than the sender", beside<disturbance::CLICKS, -10>},
    {"speech 20 dB louder than the sender", beside<disturbance::SPEECH, -20>},
    {"band telephone", band_from<7>},
    {"band voice", band_from<43>},
    {"band voice, speech as loud as the sender",
     [](repeat_setup* setup) {
         band_from<43>(setup);
         beside<disturbance::SPEECH, 0>(setup);
     }},
    {"band audible", band_from<128>},
    {"band high", band_from<272>},
};

int run_conditions(const repeat_setup& plain, double snr_db, uint32_t trials, uint64_t seed)
{
    print_head(plain);
    for (const condition& c : CONDITIONS) {
        repeat_setup setup = plain;
        c.change(&setup);
        if (setup.beside == disturbance::SPEECH && setup.speech == nullptr) {
            continue;
        }
        std::vector<point> points(1);
        points[0].snr_db = snr_db;
        points[0].wanted = {setup.plain, setup.plain, true, true};
        run_trials(setup, trials, seed, &points);
        print_row(setup, c.name, points[0]);
    }
    return 0;
}

// NAME=VALUE, as given to the program.
class arguments {
public:
    // False where one is not of that form.
    bool read(int argc, char** argv)
    {
        for (int i = 1; i < argc; ++i) {
            const char* const equals = std::strchr(argv[i], '=');
            if (equals == nullptr) {
                return false;
            }
            words_[std::string(argv[i], static_cast<size_t>(equals - argv[i]))] = equals + 1;
        }
        return true;
    }
    bool has(const char* name) const { return words_.count(name) != 0; }
    std::string text(const char* name, const char* otherwise) const
    {
        return has(name) ? words_.at(name) : std::string(otherwise);
    }
    double number(const char* name, double otherwise) const
    {
        return has(name) ? std::atof(words_.at(name).c_str()) : otherwise;
    }

private:
    std::map<std::string, std::string> words_;
};

// False when an argument names nothing that there is.
bool set_up(const arguments& given, repeat_setup* setup, signal* speech)
{
    ko_soundcommu_band_t band;
    const std::string kind = given.text("kind", "random");
    setup->channel = find_channel(given.text("channel", "white"));
    if (setup->channel == nullptr || KINDS.count(kind) == 0 ||
        ko_soundcommu_find_band(given.text("band", "near-ultrasonic").c_str(), &band) != 0) {
        return false;
    }
    setup->first_subcarrier = band.first_subcarrier;
    setup->kind = KINDS.at(kind);
    setup->repeats = static_cast<uint32_t>(given.number("repeats", 8));
    setup->messages = static_cast<uint32_t>(given.number("messages", 1));
    setup->gap = static_cast<uint32_t>(given.number("gap", 3600));
    setup->second_level_db = given.number("level", 0);
    setup->noise_correlation = given.number("correlation", 0);
    setup->block = {static_cast<uint32_t>(given.number("block", 960)),
                    static_cast<uint32_t>(given.number("block2", given.number("block", 960)))};
    setup->clip_rms = given.number("clip", 0);
    setup->plain = given.number("plain", 0) != 0;
    *speech = given.has("wav") ? read_speech(given.text("wav", "")) : signal{};
    if (!speech->empty()) {
        scale(speech, 1 / std::sqrt(mean_power(*speech, 0, speech->size())));
        setup->speech = speech;
    }
    for (const auto& [name, what] : {std::pair{"clicks", disturbance::CLICKS}, {"speech", disturbance::SPEECH}}) {
        if (given.has(name)) {
            setup->beside = what;
            setup->beside_db = given.number(name, 0);
        }
    }
    return setup->repeats > 0 && setup->messages > 0 && setup->block[0] > 0 && setup->block[1] > 0 &&
           (setup->beside != disturbance::SPEECH || setup->speech != nullptr);
}

std::vector<point> make_points(const arguments& given, bool plain)
{
    const double from = given.number("from", 0);
    const double to = given.number("to", -10);
    const double lower = given.number("lower", 0);
    const double step = std::max(given.number("step", 2), 0.01);
    std::vector<point> points;
    for (double snr = from; snr >= to - lower - 1e-9; snr -= step) {
        points.emplace_back();
        points.back().snr_db = snr;
        const bool by_one = snr >= to - 1e-9;
        const bool by_two = snr <= from - lower + 1e-9;
        points.back().wanted = {plain && by_one, plain && by_two, by_one, by_two};
    }
    return points;
}

} // namespace

int main(int argc, char** argv)
{
    log_level = 0;
    arguments given;
    repeat_setup setup;
    signal speech;
    if (!given.read(argc, argv) || !set_up(given, &setup, &speech)) {
        return usage();
    }
    const auto seed = static_cast<uint64_t>(given.number("seed", 1));
    const auto trials = static_cast<uint32_t>(given.number("trials", 30));
    if (given.has("noise")) {
        return run_noise(given.number("noise", 60), seed);
    }
    if (trials == 0) {
        return usage();
    }
    if (given.has("conditions")) {
        return run_conditions(setup, given.number("conditions", -5), trials, seed);
    }
    std::vector<point> points = make_points(given, setup.plain);
    run_trials(setup, trials, seed, &points);
    print_head(setup);
    for (const point& p : points) {
        print_row(setup, setup.channel->title.c_str(), p);
    }
    print_levels(setup, points);
    if (given.has("plots") && !points.empty() && !draw_levels(setup, points, given.text("plots", "."))) {
        std::fprintf(stderr, "gnuplot failed\n");
        return 1;
    }
    return 0;
}
