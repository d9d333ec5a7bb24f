// Files and long texts through the command: what arrives, what is saved, and what is refused.
#include <sndfile.hh>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "command.h"
#include "kosc/kosc.hpp"
#include "kosc_transfer/transfer.h"

namespace {

constexpr size_t GAP = 480;

std::string random_bytes(size_t count)
{
    std::mt19937 random{static_cast<uint32_t>(count)};
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

std::string unhex(const std::string& digits)
{
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

class KoscTransfers : public command_test {
protected:
    // Appends the frames of a transfer's messages from `first` to before `end` to the recording; 0 for all needed.
    void send(const std::string& payload, uint32_t kind, uint32_t nonce = 0, uint32_t first = 0, uint32_t end = 0)
    {
        kosc_transfer_sender* const sender = kosc_transfer_sender_init(
            reinterpret_cast<const uint8_t*>(payload.data()), static_cast<uint32_t>(payload.size()), kind, nonce);
        ASSERT_NE(sender, nullptr);
        for (uint32_t i = first; i < (end != 0 ? end : kosc_transfer_sender_needed(sender)); ++i) {
            char message[KOSC_TRANSFER_MESSAGE_BYTES];
            kosc_transfer_sender_message(sender, i, reinterpret_cast<uint8_t*>(message));
            const auto frame = encoder_->encode({message, sizeof message});
            sound_.insert(sound_.end(), frame->begin(), frame->end());
            sound_.resize(sound_.size() + GAP);
        }
        kosc_transfer_sender_free(sender);
    }

    // What the command makes of all that was sent so far.
    outcome decode(const std::string& options)
    {
        SndfileHandle(path("sent.wav"), SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, kosc::SAMPLE_RATE)
            .write(sound_.data(), static_cast<sf_count_t>(sound_.size()));
        return run("kosc decode " + options + " sent.wav");
    }

    void forget() { sound_.clear(); }

private:
    kosc::result<kosc::encoder> encoder_ = [] {
        log_level = KOSC_LEVEL_WARN;
        return kosc::encoder::make();
    }();
    std::vector<int16_t> sound_;
};

TEST_F(KoscTransfers, ReachTheOtherEndWhateverTheyCarry)
{
    const std::string text = "twenty-nine bytes, one more \xC3\xB6", picture = random_bytes(2048);
    std::ofstream(path("text.txt")) << text << "\r\nand a \x1b[2J line\n";
    std::ofstream(path("picture.png")) << picture;
    std::ofstream(path("small")) << "28 bytes are a plain message\n";
    std::ofstream(path("nothing"));
    std::ofstream(path("phrase")) << "correct horse\r\n";
    std::ofstream(path("same")) << "correct horse";
    std::ofstream(path("other")) << "correct house";
    std::filesystem::create_directories(path("in"));
    ASSERT_EQ(run("kosc key key && tr a-f A-F <key >KEY").code, 0);
    std::ofstream(path("raw")) << unhex(contents(path("key")).substr(0, 64));
    struct {
        std::string encode, decode, shown, saved;
    } const cases[] = {
        {"'" + text + "'", "", text, ""},
        {"- <text.txt", "", text + "\n    and a \\x1b[2J line", ""},
        {"--file text.txt", "--save in", "file text.txt, 48 bytes, saved as in/text.txt", "text.txt"},
        {"--file text.txt", "", "file text.txt, 48 bytes, not saved", ""},
        {"--file small", "", "28 bytes are a plain message", ""},
        {"--file small --as-file --rounds 3", "--save in", "file small, 29 bytes, saved as in/small", "small"},
        {"--file nothing --as-file", "--save in", "file nothing, 0 bytes, saved as in/nothing", "nothing"},
        {"--file picture.png --band wide", "--band wide --save in",
         "file picture.png, 2048 bytes, saved as in/picture.png", "picture.png"},
        {"--file picture.png --band 2000,18000 --gap 30 --pad 0", "--band 2000,18000 --save in",
         "file picture.png, 2048 bytes, saved as in/picture-2.png", ""},
        {"--file picture.png", "--save in --force", "file picture.png, 2048 bytes, saved as in/picture.png",
         "picture.png"},
        {"--file picture.png --key key", "--key raw --max-age 600 --save in --force",
         "file picture.png, 2048 bytes, saved as in/picture.png  [sealed]", "picture.png"},
        {"hi --key KEY", "--key key", "hi  [sealed]", ""},
        {"'" + text + "' --passphrase-file phrase", "--passphrase-file same", text + "  [sealed]", ""},
        {"'' --passphrase-file phrase", "--passphrase-file same", "  [sealed]", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.encode + " -> " + c.decode);
        ASSERT_EQ(run("kosc encode -o a.wav " + c.encode).err, "");
        const outcome heard = run("kosc decode a.wav " + c.decode);
        EXPECT_EQ(heard.code, 0);
        EXPECT_EQ(heard.err, "");
        ASSERT_GT(heard.out.size(), 15U);
        EXPECT_NE(heard.out.find("  " + c.shown + "\n"), std::string::npos) << heard.out;
        EXPECT_TRUE(c.saved.empty() || contents(path("in/" + c.saved)) == contents(path(c.saved)));
    }
    // All six sound at once: 2048 bytes, of which 104 messages of 160 in one round are needed, within 27 frames' time.
    run("kosc encode --file picture.png --band wide --pad 0 -o a.wav");
    EXPECT_EQ(SndfileHandle(path("a.wav")).frames(), 27 * kosc::FRAME_SAMPLES);
    run("kosc encode '" + text + "' -o a.wav");
    EXPECT_EQ(nlohmann::json::parse(run("kosc decode --json a.wav").out)["text"], text);
    struct stat key {};
    ASSERT_EQ(stat(path("key").c_str(), &key), 0);
    EXPECT_EQ(key.st_mode & 0777U, 0600U);
}

TEST_F(KoscTransfers, ComeFromTheMiddleOnAndInTurnsAmongMessages)
{
    const std::string one = "the first text is so long that it needs several messages, as it should",
                      two = "the second one is not much shorter, and comes in between";
    const auto whole = [](const std::string& text) { return static_cast<uint32_t>((text.size() + 31) / 20); };
    send(one, KOSC_TRANSFER_TEXT, 0, 3, 5);
    for (uint32_t i = 0; i <= whole(one); ++i) {
        send(one, KOSC_TRANSFER_TEXT, 0, 1000 + i, 1001 + i); // repair alone
        send(two, KOSC_TRANSFER_TEXT, 0, i, i + 1);
    }
    send("twenty bytes of which", KOSC_TRANSFER_BYTES, 0, 5, 6); // a message that is alone may be a plain one
    send(std::string(200, 'x'), KOSC_TRANSFER_TEXT, 0, 0, 2);
    const outcome heard = decode("");
    EXPECT_NE(heard.out.find("  " + one + "\n"), std::string::npos) << heard.out;
    EXPECT_NE(heard.out.find("  " + two + "\n"), std::string::npos) << heard.out;
    EXPECT_EQ(std::count(heard.out.begin(), heard.out.end(), '\n'), 3);
    EXPECT_EQ(heard.out.find("  f9"), heard.out.size() - 59) << heard.out;
    EXPECT_EQ(heard.err,
              "kosc: a transfer is not whole: 1 of 2 messages\nkosc: a transfer is not whole: 2 of 11 messages\n");
    const outcome single = decode("--single");
    EXPECT_EQ(std::count(single.out.begin(), single.out.end(), '\n'), 5 + 2 * (whole(one) + 1));
}

// Two senders who do not hear each other speak at once, now and then: then one frame is heard, or none.
TEST_F(KoscTransfers, ArriveFromSendersWhoCollide)
{
    const std::string texts[] = {"the one is so long that it needs several messages of its sender",
                                 "and the other one does too, from another place in the same room"};
    std::vector<float> mix;
    for (const std::string& text : texts) {
        run("kosc encode --rounds 2 --gap " + std::string(&text == texts ? "300" : "410") + " -o a.wav '" + text + "'");
        SndfileHandle file(path("a.wav"));
        std::vector<float> sound(static_cast<size_t>(file.frames()));
        file.readf(sound.data(), file.frames());
        mix.resize(std::max(mix.size(), sound.size()));
        std::transform(sound.begin(), sound.end(), mix.begin(), mix.begin(),
                       [](float a, float sum) { return sum + 0.4F * a; });
    }
    SndfileHandle(path("b.wav"), SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, kosc::SAMPLE_RATE)
        .write(mix.data(), static_cast<sf_count_t>(mix.size()));
    const outcome heard = run("kosc decode b.wav");
    for (const std::string& text : texts) {
        EXPECT_NE(heard.out.find("  " + text), std::string::npos) << heard.out;
    }
    const std::string lines = run("kosc decode --single b.wav | wc -l").out;
    EXPECT_LT(std::stoul(lines), 2 * 2 * kosc_transfer_round(4)) << "none collided";
}

TEST_F(KoscTransfers, AreSavedUnderNoNameThatDoesHarm)
{
    std::filesystem::create_directories(path("in"));
    const std::pair<std::string, std::string> cases[] = {
        {"../../etc/passwd", "passwd"},
        {"C:\\windows\\a.txt", "a.txt"},
        {".bashrc", "_bashrc"},
        {"-rf", "_rf"},
        {"\x1b[2J\n.txt", "_[2J_.txt"},
        {"photo\xE2\x80\xAEgnp.exe", "photo_gnp.exe"},
        {"\xC3\xB6 \xC2\x9B.txt", "\xC3\xB6 _.txt"},
        {std::string("a\0b", 3), "a_b"},
        {"..", "transfer-"},
        {"in/", "transfer-"},
        {"\xFF.txt", "transfer-"},
        {"", "transfer-"},
        {std::string(251, 'n') + ".txt", std::string(251, 'n') + ".txt"},
        {std::string(251, 'n') + ".txt", std::string(249, 'n') + "-2.txt"},
    };
    for (const auto& [sent, saved] : cases) {
        SCOPED_TRACE(saved);
        forget();
        const std::string bytes = "contents of " + saved.substr(0, 9);
        send(static_cast<char>(sent.size()) + sent + bytes, KOSC_TRANSFER_FILE);
        const auto heard = nlohmann::json::parse(decode("--save in --json").out);
        const std::string place = heard["transfer"]["saved"];
        EXPECT_EQ(place.rfind("in/" + saved, 0), 0U) << place;
        EXPECT_EQ(contents(path(place)), bytes);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path("in")), {}), std::ptrdiff_t{std::size(cases)});
    forget();
    send("\xF0no name is so long", KOSC_TRANSFER_FILE); // no file at all
    EXPECT_NE(decode("--save in").out.find("file 19 bytes, saved as in/transfer-"), std::string::npos);
}

TEST_F(KoscTransfers, AreTakenWithAKeyOnlyFromThoseWhoHaveIt)
{
    const auto vectors = nlohmann::json::parse(std::ifstream{KOSC_TEST_VECTORS "/transfer.json"})["sealed"];
    const std::string sealed = unhex(vectors[0]["payload"]), text = unhex(vectors[0]["content"]);
    std::ofstream(path("key")) << vectors[0]["key"].get<std::string>();
    std::ofstream(path("other")) << std::string(64, '0') << '\n';
    std::ofstream(path("phrase")) << vectors[1]["passphrase"].get<std::string>() << '\n';
    constexpr uint32_t SEALED_TEXT = KOSC_TRANSFER_SEALED + KOSC_TRANSFER_TEXT;
    send(sealed, SEALED_TEXT);
    struct {
        std::string options, reason;
    } const refusals[] = {
        {"", "it is sealed, and there is no --key or pass phrase"},
        {"--key other", "it is sealed with another key, or forged"},
        {"--key key --max-age 86400", "s ago"},
        {"--key key --max-size 30", "it is longer than --max-size allows"},
    };
    for (const auto& c : refusals) {
        const outcome heard = decode(c.options);
        EXPECT_EQ(heard.code, 1);
        EXPECT_EQ(heard.out, "");
        EXPECT_NE(heard.err.find(c.reason), std::string::npos) << heard.err;
    }
    // What the tool takes for plain without a key, the same as a replay, as another kind, and changed.
    send(sealed, SEALED_TEXT, 1);
    send(sealed, KOSC_TRANSFER_SEALED + KOSC_TRANSFER_FILE);
    send("anybody may have written this", KOSC_TRANSFER_TEXT);
    std::string changed = sealed;
    changed.back() ^= 1;
    send(changed, SEALED_TEXT);
    send("twenty bytes of which", KOSC_TRANSFER_BYTES, 0, 5, 6);
    const outcome heard = decode("--key key");
    EXPECT_NE(heard.out.find("  ch 1  " + text + "  [sealed]\n"), std::string::npos) << heard.out;
    EXPECT_EQ(std::count(heard.out.begin(), heard.out.end(), '\n'), 1) << heard.out;
    for (const std::string reason : {"it has been received before", "it is not of the kind that it was sealed as",
                                     "it is not sealed, so anybody", "sealed with another key, or forged"}) {
        EXPECT_NE(heard.err.find(reason), std::string::npos) << reason << heard.err;
    }
    forget();
    send(unhex(vectors[1]["payload"]), KOSC_TRANSFER_SEALED + KOSC_TRANSFER_FILE);
    std::filesystem::create_directories(path("in"));
    EXPECT_EQ(decode("--passphrase-file phrase --save in").code, 0);
    EXPECT_EQ(contents(path("in/a.txt")), unhex(vectors[1]["content"]).substr(6));
}

TEST_F(KoscTransfers, RefuseInOneSentenceAndLoseNothing)
{
    std::ofstream(path("big")) << std::string(1048573, 'x');
    std::ofstream(path("fits")) << std::string(1048571, 'x');
    std::ofstream(path("short")) << std::string(62, 'a');
    std::ofstream(path("empty"));
    const std::pair<std::string, std::string> cases[] = {
        {"kosc encode --file big -o a.wav", "'big' is too long: the limit is 1048572 bytes"},
        {"kosc encode --file short --as-file --rounds 0 -o a.wav", "--rounds"},
        {"kosc encode hi --as-file -o a.wav", "--as-file requires --file"},
        {"kosc encode \"$(printf '%029d\\377' 1)\" -o a.wav", "not UTF-8"},
        {"kosc encode --file fits --rounds 3 -o a.wav", "too long for a WAV file"},
        {"kosc encode hi --band telephone,voice -o a.wav", "the bands telephone and voice overlap"},
        {"kosc encode hi --key short -o a.wav", "'short' is no key"},
        {"kosc encode hi --key none -o a.wav", "cannot read 'none'"},
        {"kosc encode hi --key short --ask-passphrase -o a.wav", "excludes"},
        {"kosc encode hi --passphrase-file empty -o a.wav", "a pass phrase has 1 to 1024 bytes"},
        {"setsid -w '" KOSC_TOOL "' encode hi --ask-passphrase -o a.wav </dev/null", "there is no terminal to ask"},
        {"kosc key short", "cannot write 'short': File exists"},
        {"kosc decode --save none a.flac", "cannot save into 'none': it is no folder"},
        {"kosc decode --force a.flac", "--force requires --save"},
    };
    run("kosc encode hi -o a.flac");
    for (const auto& [command, reason] : cases) {
        SCOPED_TRACE(command);
        const outcome refusal = run(command);
        EXPECT_EQ(refusal.code, 2);
        EXPECT_NE(refusal.err.find(reason), std::string::npos) << refusal.err;
        EXPECT_EQ(std::count(refusal.err.begin(), refusal.err.end(), '\n'), 1) << refusal.err;
        EXPECT_FALSE(std::filesystem::exists(path("a.wav")));
    }
    // A folder in which nothing can be saved: what was heard is told, and the exit code says that it is lost.
    std::filesystem::create_directories(path("in/big"));
    run("head -c 100 big >in/small; kosc encode --file in/small -o a.wav; mkdir -p full/small");
    const outcome lost = run("kosc decode a.wav --save full --force");
    EXPECT_EQ(lost.code, 2);
    EXPECT_NE(lost.out.find("file small, 100 bytes, not saved"), std::string::npos) << lost.out;
    EXPECT_NE(lost.err.find("cannot save 'full/small': Is a directory"), std::string::npos) << lost.err;
    EXPECT_EQ(run("ls -A full").out, "small\n");
}

} // namespace
