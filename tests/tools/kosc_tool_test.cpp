// The kosc command from outside: what it prints, where, and with which exit code.
#include <sndfile.hh>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "command.h"

namespace {

constexpr int RATE = 48000;
constexpr size_t FRAME = 11520;

void write_sound(const std::string& path, int format, int rate, int channels, const std::vector<float>& samples)
{
    SndfileHandle file(path, SFM_WRITE, format, channels, rate);
    ASSERT_EQ(file.error(), 0) << file.strError();
    file.writef(samples.data(), static_cast<sf_count_t>(samples.size()) / channels);
}

class KoscTool : public command_test {
protected:
    // The frame of a message between so many samples of silence; leaves the bare frame in frame.wav.
    std::vector<float> recording_of(const std::string& text, size_t before = 0, size_t after = 0,
                                    const std::string& options = "") const
    {
        EXPECT_EQ(run("kosc encode '" + text + "' --pad 0 -o frame.wav " + options).code, 0);
        SndfileHandle file(path("frame.wav"));
        std::vector<float> samples(before + FRAME + after);
        EXPECT_EQ(file.readf(&samples[before], FRAME + after), static_cast<sf_count_t>(FRAME));
        return samples;
    }
};

// Float files may hold samples that are beyond full scale or no numbers.
TEST_F(KoscTool, ReadsEveryFormatAndRate)
{
    const std::tuple<int, int, float, std::string> cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, RATE, 3.0F, ""},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, RATE, 1.0F, ""},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_32, RATE, 1.0F, ""},
        {SF_FORMAT_CAF | SF_FORMAT_PCM_16, RATE, 1.0F, ""},
        {SF_FORMAT_W64 | SF_FORMAT_PCM_16, RATE, 1.0F, ""},
        {SF_FORMAT_AU | SF_FORMAT_PCM_16, RATE, 1.0F, ""},
        {SF_FORMAT_OGG | SF_FORMAT_OPUS, RATE, 1.0F, ""},
        {SF_FORMAT_RAW | SF_FORMAT_PCM_24 | SF_ENDIAN_BIG, RATE, 1.0F, "--raw 48000:s24be:1 "},
        {SF_FORMAT_RAW | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, 96000, 1.0F, "--raw 96000:f32:1 "},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 192000, 1.0F, ""},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 22050, 1.0F, "--band audible "},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 32000, 1.0F, "--band audible,12000 "},
        {SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 44100, 1.0F, "--band telephone --raw 44100:s16:1 "},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 96000, 1.0F, "--band 20530 "},
        // So faint that what a poor conversion leaves of the band is lost in 16 bits.
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 0.0001F, ""},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 8000, 0.0001F, "--band telephone "},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16000, 0.0001F, "--band 4600 "}, // as far up as it may be
    };
    for (const auto& [format, rate, gain, options] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << format << std::dec << " at " << rate << " * " << gain);
        const double ratio = static_cast<double>(rate) / RATE;
        const std::string band =
            options.rfind("--band", 0) == 0 ? options.substr(0, options.find_first_of(" ,", 7)) : "";
        std::vector<float> samples = recording_of("any file", 24000, 4800, band);
        std::for_each(samples.begin(), samples.end(), [gain = gain](float& sample) { sample *= gain; });
        std::vector<float> sound(samples.size() * static_cast<size_t>(rate) / RATE);
        soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
        quality.passband_end = 0.985; // also of 44.1 kHz
        ASSERT_EQ(soxr_oneshot(RATE, rate, 1, samples.data(), samples.size(), nullptr, sound.data(), sound.size(),
                               nullptr, nullptr, &quality, nullptr),
                  nullptr);
        if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT) {
            sound[100] = NAN;
        }
        write_sound(path("a"), format, rate, 1, sound);
        for (const std::string& command :
             {"kosc decode --json " + options + "a", "cat a | kosc decode --json " + options + "-"}) {
            const outcome heard = run(command);
            ASSERT_EQ(heard.code, 0) << command << heard.err;
            const auto message = nlohmann::json::parse(heard.out);
            EXPECT_EQ(message["text"], "any file");
            // Conversion may move the correlation's peak by a sample or two of the modem's.
            EXPECT_NEAR(message["sample"], rate / 2, 2 * ratio);
        }
    }
}

TEST_F(KoscTool, HearsEachChannelOnItsOwnAndPrintsInTheOrderOfTime)
{
    const std::tuple<size_t, size_t, std::string> sent[] = {
        {4800, 7, "first"}, {9600, 2, "second"}, {9600, 3, "third"}, {21600, 7, "fourth"}};
    // The recording ends with its last frame, and a little early: within what that frame fades out.
    constexpr size_t CHANNELS = 8, CUT = 60;
    std::vector<float> mix((21600 + FRAME - CUT) * CHANNELS);
    for (const auto& [start, channel, text] : sent) {
        const std::vector<float> frame = recording_of(text);
        for (size_t i = 0; i < FRAME - CUT; ++i) {
            mix[(start + i) * CHANNELS + channel - 1] += 0.5F * frame[i];
        }
    }
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, RATE, CHANNELS, mix);
    EXPECT_EQ(run("kosc decode a.wav").out, "0.100 s  ch 7  first\n0.200 s  ch 2  second\n"
                                            "0.200 s  ch 3  third\n0.450 s  ch 7  fourth\n");
}

// Bands that lie side by side, and may overlap, take turns; the others sound at once.
TEST_F(KoscTool, HearsSeveralBandsAtOnceAndTellsThemApart)
{
    const auto bands = nlohmann::json::parse(run("kosc info --json").out)["bands"];
    ASSERT_GE(bands.size(), 4U);
    std::vector<float> mix(2 * RATE);
    std::vector<std::string> expected;
    for (size_t i = 0; i < bands.size(); ++i) {
        const std::string name = bands[i]["name"];
        const std::vector<float> sound = recording_of("same", 4800 + 24000 * (i % 2) + 480 * i, 0, "--band " + name);
        std::transform(sound.begin(), sound.end(), mix.begin(), mix.begin(),
                       [&](float x, float sum) { return sum + (i == 0 ? 0.4F : 0.1F) * x; });
        expected.push_back("0." + std::to_string(100 + 500 * (i % 2) + 10 * i) + " s  ch 1  " + name + "  same\n");
    }
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, mix);
    const std::string lowest = expected.front();
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(run("kosc decode --band all a.wav").out,
              std::accumulate(expected.begin(), expected.end(), std::string()));
    EXPECT_EQ(run("kosc decode --band telephone,audible a.wav | wc -l").out, "2\n");
    // Noise is measured against the faint one, of which the other is 12 dB louder.
    ASSERT_EQ(run("kosc simulate --band audible --snr 16 a.wav b.wav").code, 0);
    EXPECT_NEAR(nlohmann::json::parse(run("kosc decode --band audible --json b.wav").out)["snr_db"], 16, 2);
    EXPECT_NEAR(nlohmann::json::parse(run("kosc decode --band telephone --json b.wav").out)["snr_db"], 28, 2);
    // What is left of it in a telephone's samples.
    std::vector<float> call(mix.size() / 6);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    soxr_oneshot(RATE, 8000, 1, mix.data(), mix.size(), nullptr, call.data(), call.size(), nullptr, nullptr, &quality,
                 nullptr);
    write_sound(path("c.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1, call);
    const outcome heard = run("kosc decode --band all c.wav");
    EXPECT_EQ(heard.out, lowest);
    EXPECT_EQ(heard.err,
              "kosc: 'c.wav': left out, because not in sound at 8000 Hz: voice, audible, high, near-ultrasonic\n");
}

TEST_F(KoscTool, ShowsTextAsTextAndAnythingElseAsHex)
{
    const auto padded = [](std::string hex) { return hex.append(2 * 28 - hex.size(), '0'); };
    const std::pair<std::string, std::string> cases[] = {
        {"-- '-5 °C'", "-5 °C"},
        {"'exactly twenty-eight bytes..'", "exactly twenty-eight bytes.."},
        {"--file text", "from a file"},
        {"--hex 486900004a", padded("486900004a")}, // a zero inside
        {"--hex 48690a", padded("48690a")},         // a new line would forge a second message
        {"--hex c29b41", padded("c29b41")},         // CSI, which starts terminal commands
        {"''", padded("")},
    };
    std::ofstream(path("text")) << "from a file\r\n";
    for (const auto& [encode, shown] : cases) {
        EXPECT_EQ(run("kosc encode -o A.FLAC " + encode + "; kosc decode A.FLAC").out, "0.100 s  ch 1  " + shown + "\n")
            << encode;
    }
    EXPECT_EQ(run("kosc encode Hi -o - | kosc decode --hex -").out, "0.100 s  ch 1  " + padded("4869") + "\n");
}

// The same frame in two levels of noise, of which the stronger takes a second look.
TEST_F(KoscTool, SaysWhichMessagesNeededTheSecondLook)
{
    for (const bool needed : {false, true}) {
        std::vector<float> samples = recording_of("deep", 9000, 1000);
        std::normal_distribution<float> noise(0.0F, needed ? 0.5F : 0.01F);
        std::for_each(samples.begin(), samples.end(),
                      [&, random = std::minstd_rand(1)](float& x) mutable { x = 0.2F * (x + noise(random)); });
        write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, samples);
        EXPECT_EQ(run("kosc decode a.wav").out,
                  std::string("0.188 s  ch 1  deep") + (needed ? "  [second look]\n" : "\n"));
        const auto message = nlohmann::json::parse(run("kosc decode --json a.wav").out);
        EXPECT_EQ(message["second_look"], needed);
        EXPECT_NEAR(message["drift_ppm"], 0.0, 50.0); // a sender on the same clock
        EXPECT_EQ(run("kosc decode --plain a.wav").out, needed ? "" : "0.188 s  ch 1  deep\n");
    }
}

// Six frames that fail alone, on two channels with noise of their own; and the first of them, which is too few.
TEST_F(KoscTool, AddsUpRepeatsAndMicrophonesThatAreTooWeakAlone)
{
    constexpr size_t LEAD = 24000, PERIOD = FRAME + RATE / 10, FRAMES = 6;
    const std::vector<float> frame = recording_of("weak alone");
    for (const bool repeated : {true, false}) {
        SCOPED_TRACE(repeated);
        std::vector<float> mix(2 * (2 * LEAD + FRAMES * PERIOD));
        std::normal_distribution<float> noise(0.0F, 0.07F); // some -6 dB in the band
        std::minstd_rand random(1);
        for (size_t i = 0; i < mix.size(); ++i) {
            const size_t n = i / 2 - std::min(i / 2, LEAD), in_frame = n % PERIOD;
            const bool sounds = n != 0 && in_frame < FRAME && n < (repeated ? FRAMES : 1) * PERIOD;
            mix[i] = noise(random) + (sounds ? 0.05F * frame[in_frame] : 0.0F);
        }
        write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 2, mix);
        EXPECT_EQ(run("kosc decode a.wav").out, "");
        const std::string line = run("kosc decode --combine a.wav").out;
        const outcome heard = run("kosc decode --combine --json a.wav");
        const auto report = nlohmann::json::parse(run("kosc inspect --json a.wav").out);
        ASSERT_EQ(report["sums"].size(), repeated ? 1U : 0U) << report;
        ASSERT_EQ(heard.code, repeated ? 0 : 1) << heard.out;
        if (!repeated) {
            EXPECT_EQ(line, "");
            continue;
        }
        const auto message = nlohmann::json::parse(heard.out); // one, and only one
        const auto& from = message["combined"];
        EXPECT_EQ(message["text"], "weak alone");
        EXPECT_EQ(from["microphones"], 2);
        EXPECT_NEAR(static_cast<double>(from["frames"]), 4, 2);
        EXPECT_NEAR(message["sample"], LEAD + std::round(static_cast<double>(from["seconds"]) * RATE), 10);
        std::ostringstream place;
        place << "  [put together from " << from["frames"] << " frames, 2 microphones, SNR ";
        EXPECT_NE(line.find("weak alone" + place.str()), std::string::npos) << line;
        EXPECT_EQ(report["sums"][0]["text"], "weak alone");
        EXPECT_EQ(report["sums"][0]["frames"], from["frames"]);
        EXPECT_EQ(report["cause"], "noise");
        EXPECT_NE(std::string(report["verdict"]).find("but the sum of weak frames gives a message"), std::string::npos);
        EXPECT_EQ(run("kosc inspect --plain a.wav").code, 1);
    }
}

// The second frame is fainter, begins within the first and is covered by it for two thirds.
TEST_F(KoscTool, HearsFramesThatLieOverEachOtherInACrowd)
{
    constexpr size_t LEAD = 24000, LATER = 4000;
    const std::vector<float> loud = recording_of("loud", LEAD, LEAD), faint = recording_of("faint", LEAD + LATER, LEAD);
    std::vector<float> mix(faint);
    for (size_t i = 0; i < mix.size(); ++i) {
        mix[i] = 0.15F * faint[i] + (i < loud.size() ? 0.3F * loud[i] : 0.0F);
    }
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, mix);
    EXPECT_EQ(run("kosc decode a.wav").out.find("faint"), std::string::npos);
    EXPECT_EQ(run("kosc decode --crowd a.wav").out, "0.500 s  ch 1  loud\n0.583 s  ch 1  faint\n");
    EXPECT_EQ(run("kosc decode --crowd --plain a.wav").code, 2);
    const auto report = nlohmann::json::parse(run("kosc inspect --json a.wav").out);
    ASSERT_EQ(report["frames"].size(), 2U) << report;
    const auto &under = report["frames"][1], &over = report["frames"][0];
    EXPECT_EQ(report["cause"], "several senders");
    EXPECT_TRUE(report["sums"].empty()) << report["sums"];
    EXPECT_EQ(under["crowd"], "decodes");
    EXPECT_EQ(under["text"], "faint");
    EXPECT_EQ(under["lies_over"], nlohmann::json::array({over["sample"]}));
    EXPECT_EQ(over["lies_over"], nlohmann::json::array({under["sample"]}));
    EXPECT_NE(std::string(report["verdict"]).find(" with --crowd: several frames sound at once"), std::string::npos)
        << report["verdict"];
}

// A frame on the second of two channels, whose beginning is missing, and one that decodes with the second look.
TEST_F(KoscTool, InspectsEveryFrameAndDrawsIt)
{
    const std::vector<float> frame = recording_of("inspected");
    std::vector<float> mix(2 * 48000);
    constexpr size_t MISSING = 200;
    for (size_t i = 0; i < FRAME; ++i) {
        if (i >= MISSING) {
            mix[2 * (i - MISSING) + 1] = 0.3F * frame[i];
        }
        mix[2 * (24000 + i)] = 0.3F * frame[i];
    }
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 2, mix);
    EXPECT_EQ(run("kosc decode a.wav").out, "-0.004 s  ch 2  inspected\n0.500 s  ch 1  inspected\n");
    ASSERT_EQ(run("kosc simulate --drift 1500 --snr 12 --seed 3 a.wav b.flac").code, 0);
    const auto report = nlohmann::json::parse(run("kosc inspect b.flac --json --plot b.PNG").out);
    ASSERT_EQ(report["frames"].size(), 2U) << report;
    const auto& early = report["frames"][0];
    const auto& late = report["frames"][1];
    EXPECT_NEAR(early["sample"], -200, 20); // a shift of frequency moves the correlation's peak
    EXPECT_EQ(early["channel"], 2);
    EXPECT_NEAR(late["time"], 0.5, 0.002);
    EXPECT_EQ(late["text"], "inspected");
    EXPECT_EQ(late["second_look"], "decodes");
    EXPECT_NEAR(late["drift_ppm"], 1500, 20);
    EXPECT_NEAR(late["snr_db"], 12, 2);
    EXPECT_FALSE(late["failed_parts"].empty());
    EXPECT_EQ(report["cause"], "drift");
    EXPECT_EQ(contents(path("b.PNG")).rfind("\x89PNG", 0), 0U);
    const outcome plain = run("kosc inspect b.flac --plain --plot b.svg");
    EXPECT_EQ(plain.code, 1);
    EXPECT_EQ(plain.out.find("ppm"), std::string::npos) << plain.out;
    EXPECT_NE(contents(path("b.svg")).find("</svg>"), std::string::npos);
}

TEST_F(KoscTool, SimulatesTheSamePathFromTheSameSeed)
{
    run("kosc encode path -o a.wav");
    const std::string steps =
        "kosc simulate --echo 1:0.7 --echo 2.5:-0.3 --room 0.3 --gain -6 --lowpass 22000 --snr 20 a.wav ";
    for (const char* noise : {"white", "pink", "speech"}) {
        const std::string same = steps + "--noise " + noise + " --seed 1 ";
        EXPECT_EQ(run(same + "b.wav; " + same + "c.wav; cmp b.wav c.wav").code, 0) << noise;
        EXPECT_EQ(run(steps + "d.wav --seed 2; cmp -s b.wav d.wav").code, 1) << noise;
        EXPECT_EQ(run("kosc decode b.wav").out.substr(0, 20), "0.100 s  ch 1  path\n") << noise;
    }
    run("kosc encode path --pad 1500 -o a.wav; kosc simulate --senders 3 --snr 20 a.wav f.wav");
    const std::string heard = run("kosc decode f.wav").out;
    for (const char* message : {"1.500 s  ch 1  path\n", "sender 2\n", "sender 3\n"}) {
        EXPECT_NE(heard.find(message), std::string::npos) << message;
    }
    run("kosc encode path -o a.wav");
    ASSERT_EQ(run("kosc simulate --clip 0.1 a.wav e.wav").code, 0);
    SndfileHandle clipped(path("e.wav"));
    std::vector<float> samples(static_cast<size_t>(clipped.frames()));
    clipped.readf(samples.data(), clipped.frames());
    EXPECT_FLOAT_EQ(*std::max_element(samples.begin(), samples.end()), std::round(0.1F * 32768) / 32768);
}

TEST_F(KoscTool, TellsInOneSentenceAndTheExitCodeWhyThereIsNoMessage)
{
    std::vector<float> samples = recording_of("quiet", 9000, 10000); // where two search windows overlap
    write_sound(path("good.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, samples);
    std::fill(samples.begin() + 9000 + 2560, samples.end(), 0.0F); // nothing is left behind the first pilot
    write_sound(path("damaged.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, samples);
    write_sound(path("empty.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, {});
    write_sound(path("low.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44099, 1, std::vector<float>(100));
    std::filesystem::create_symlink("/dev/full", path("full.wav"));
    std::ofstream(path("phone.m4a")) << std::string("\0\0\0\x1c", 4) + "ftypM4A and so on";
    const std::string small_files = "trap '' XFSZ; ulimit -f 1; ";
    const std::tuple<std::string, int, std::string> cases[] = {
        {"kosc encode Hi -o a.mp3", 2, "must end in .wav or .flac"},
        {"kosc encode Hi -o full.wav", 2, "No space left on device"},
        {"kosc encode \"$(printf '\\377')\" -o a.wav", 2, "not UTF-8"},
        {"kosc encode --file /dev/zero -o a.wav", 2, "'/dev/zero' is too long: the limit is 1048571 bytes"},
        {"kosc decode none.wav", 2, "cannot read 'none.wav': No such file or directory"},
        {"kosc foo", 2, "there is no command 'foo', the nearest is info; see kosc --help"},
        {"kosc help encod", 2, "there is no command 'encod', the nearest is encode; see kosc --help"},
        {"kosc decode --nope good.wav", 2, "; see kosc decode --help"},
        {"kosc decode - </dev/null", 2, "cannot read standard input: it is empty"},
        {"cat phone.m4a | kosc decode -", 2, "it is MPEG-4 sound (m4a), which is not read; ffmpeg -i "},
        {"kosc decode --raw 48000:s15:1 good.wav", 2, "--raw takes RATE:FORMAT:CHANNELS"},
        {"kosc simulate --noise pink good.wav a.wav", 2, "--noise requires --snr"},
        {"(" + small_files + "kosc inspect good.wav --plot a.wav.svg >/dev/null)", 2, "'a.wav.svg': File too large"},
        {"kosc decode low.wav", 2,
         "'low.wav': the near-ultrasonic band (18000 to 20953 Hz) is not in sound at 44099 Hz; it has telephone, "},
        {"kosc decode --band 6000,18000 --raw 8000:s16:1 good.wav", 2,
         "the bands audible, near-ultrasonic are not in sound at 8000 Hz; it has telephone"},
        {"kosc encode Hi --band soprano -o a.wav", 2, "no band is called soprano; a band is telephone"},
        {"kosc listen --band voice,21000", 2, "does not lie between 250 and 23500 Hz"},
        {": >nil; kosc inspect nil", 2, "cannot read 'nil': it is empty"},
        {"kosc inspect good.wav --plot good.pdf", 2, "must end in .svg or .png"},
        {"kosc simulate good.wav a.wav --echo 3", 2, "--echo takes MS:GAIN"},
        {"kosc simulate good.wav full.wav", 2, "No space left on device"},
        {"kosc --help >/dev/full", 2, "cannot write to standard output: No space left on device"},
        {"kosc decode empty.wav", 1, "no message found\n"},
        {"kosc decode damaged.wav", 1, "no message found; possible frames that could not be read: 1\n"},
    };
    for (const auto& [command, code, reason] : cases) {
        SCOPED_TRACE(command);
        const outcome refusal = run(command);
        EXPECT_EQ(refusal.code, code);
        EXPECT_EQ(refusal.out, "");
        EXPECT_EQ(refusal.err.rfind("kosc: ", 0), 0U) << refusal.err;
        EXPECT_NE(refusal.err.find(reason), std::string::npos) << refusal.err;
        EXPECT_EQ(refusal.err.find('\n'), refusal.err.size() - 1) << refusal.err;
        EXPECT_FALSE(std::filesystem::exists(path("a.wav")) || std::filesystem::exists(path("a.wav.svg")));
    }
    const outcome quiet = run("kosc decode --quiet good.wav; echo $?; kosc decode --quiet empty.wav; echo $?");
    EXPECT_EQ(quiet.out + quiet.err, "0\n1\n");
    const outcome several = run("kosc decode damaged.wav good.wav none.wav good.wav");
    EXPECT_EQ(several.out, "good.wav: 0.188 s  ch 1  quiet\ngood.wav: 0.188 s  ch 1  quiet\n");
    EXPECT_EQ(several.err, "kosc: no message found in 'damaged.wav'; possible frames that could not be read: 1\n"
                           "kosc: cannot read 'none.wav': No such file or directory\n");
    EXPECT_EQ(several.code, 2);
    const outcome inspected = run("kosc inspect --raw 48000:s16:1 none.wav good.wav - <good.wav");
    EXPECT_NE(inspected.out.find("decodes at once: quiet\n"), inspected.out.rfind("decodes at once: quiet\n"));
    EXPECT_EQ(inspected.out.rfind("file       good.wav\nrecording", 0), 0U) << inspected.out;
    EXPECT_EQ(inspected.code, 2);
    // A pipe without a reader.
    const outcome left = run("mkfifo p; exec 4<>p 5>p 4>&-; kosc decode good.wav good.wav >&5");
    EXPECT_EQ(left.err, "");
    EXPECT_EQ(left.code, 128 + SIGPIPE);
}

// What compares with no limit is within none.
TEST_F(KoscTool, NoOptionTakesWhatIsNoFiniteNumber)
{
    const std::string options =
        run("for c in $(kosc --help | sed -n '/^Subcommands:/,$ s/^  \\([a-z]*\\) .*/\\1/p'); do\n"
            "kosc $c --help | sed -n \"s/^  \\(--[a-z]*\\) FLOAT.*/$c \\1/p\"; done")
            .out;
    EXPECT_GE(std::count(options.begin(), options.end(), '\n'), 9) << options;
    std::istringstream lines(options);
    for (std::string line; std::getline(lines, line);) {
        for (const char* value : {"nan", "-nan", "inf", "-inf", "1e999"}) {
            const outcome refusal = run("kosc " + line + "=" + value);
            EXPECT_EQ(refusal.code, 2) << line;
            EXPECT_NE(refusal.err.find(" is not a number from "), std::string::npos) << line << refusal.err;
        }
    }
}

// The recording stops for more than the time after which progress is shown.
TEST_F(KoscTool, ShowsItsProgressOnATerminalAndTakesItAway)
{
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, recording_of("slow", 0, RATE));
    std::ofstream(path("slowly")) << "{ head -c 60000 a.wav; sleep 2.1; tail -c +60001 a.wav; } | '" KOSC_TOOL
                                     "' decode -";
    const std::string shown = run("COLUMNS=20 script -qec 'sh slowly' /dev/null").out;
    EXPECT_EQ(shown.rfind("0.000 s  ch 1  slow\r\n\r0:0", 0), 0U) << shown;
    EXPECT_NE(shown.find(" heard, 0."), std::string::npos) << shown;
    EXPECT_EQ(shown.find("speed"), std::string::npos) << "longer than the line";
    EXPECT_EQ(shown.substr(shown.size() - 4), "\r\x1b[K") << shown;
}

TEST_F(KoscTool, ShowsWhatItHeardBeforeTheRecordingBreaksOff)
{
    std::vector<float> samples = recording_of("long", 0, 20 * RATE);
    // Noise keeps the file from shrinking to nothing.
    std::for_each(samples.begin(), samples.end(),
                  [random = std::minstd_rand(1)](float& x) mutable { x += 1e-11F * random(); });
    write_sound(path("a.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, RATE, 1, samples);
    std::filesystem::resize_file(path("a.flac"), std::filesystem::file_size(path("a.flac")) / 2);
    const outcome broken = run("kosc decode a.flac");
    EXPECT_EQ(broken.out, "0.000 s  ch 1  long\n");
    EXPECT_EQ(broken.code, 2);
    EXPECT_EQ(broken.err.rfind("kosc: cannot read 'a.flac': ", 0), 0U) << broken.err;
    write_sound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, RATE, 1, samples);
    const outcome cut = run("head -c 100000 a.wav >b.wav; kosc inspect b.wav");
    EXPECT_NE(cut.out.find("decodes at once: long"), std::string::npos) << cut.out;
    EXPECT_EQ(cut.code, 0);
    EXPECT_EQ(cut.err, "kosc: 'b.wav' breaks off before its end\n");
    EXPECT_EQ(run("head -c 50 a.wav >b.wav; kosc decode b.wav").code, 1);
}

TEST_F(KoscTool, InfoTellsTheBandAndHelpWhatOptionsTell)
{
    const auto facts = nlohmann::json::parse(run("kosc info --json").out);
    EXPECT_EQ(facts["band_high_hz"], 20953.125);
    EXPECT_EQ(facts["wide"][1], "5203.125");
    EXPECT_EQ(run("kosc help decode").out, run("kosc decode --help").out);
    EXPECT_EQ(run("kosc version").out, run("kosc --version").out);
    const std::string info = run("kosc info").out;
    EXPECT_NE(info.find("18000.000 Hz to 20953.125 Hz, 64 subcarriers"), std::string::npos) << info;
    EXPECT_NE(info.find("  wide              2016 to 20953 Hz  6 bands side by side"), std::string::npos) << info;
}

} // namespace
