#include "transfer/seal.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "audio/sound_writer.h"
#include "commands/stop_request.h"
#include "kosc_transfer/transfer.h"

namespace {

constexpr size_t NONCE = crypto_secretbox_NONCEBYTES, TAG = crypto_secretbox_MACBYTES, TIME = 8;
static_assert(SEAL_BYTES == NONCE + TAG + TIME + 1 && KEY_BYTES == crypto_secretbox_KEYBYTES);
constexpr size_t LONGEST_PHRASE = 1024;

void start_sodium()
{
    if (sodium_init() < 0) {
        throw std::runtime_error("libsodium does not start");
    }
}

void wipe(std::string& secret)
{
    sodium_memzero(secret.data(), secret.size());
    secret.clear();
}

secret_key key_in_file(const std::string& path)
{
    constexpr size_t DIGITS = 2 * KEY_BYTES, LONGEST = DIGITS + 2;
    std::string text = read_bytes(path, LONGEST);
    secret_key key;
    bool good = text.size() == KEY_BYTES;
    if (good) {
        std::copy(text.begin(), text.end(), key.bytes.begin());
    } else {
        drop_line_end(text);
        size_t length = 0;
        good = text.size() == DIGITS &&
               sodium_hex2bin(key.bytes.data(), KEY_BYTES, text.data(), DIGITS, nullptr, &length, nullptr) == 0 &&
               length == KEY_BYTES;
    }
    wipe(text);
    if (!good) {
        throw std::runtime_error(input_name(path) + " is no key: that is 64 hexadecimal digits, or 32 bytes");
    }
    return key;
}

// A line that is typed without being shown.
std::string asked(const char* question)
{
    const stream_ptr terminal{std::fopen("/dev/tty", "r+")};
    termios before{};
    if (!terminal || tcgetattr(fileno(terminal.get()), &before) != 0) {
        throw std::runtime_error("there is no terminal to ask for the pass phrase; --passphrase-file reads one");
    }
    catch_stop_signals(true); // so that what is typed later is shown again
    termios hidden = before;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(fileno(terminal.get()), TCSAFLUSH, &hidden);
    std::fprintf(terminal.get(), "%s: ", question);
    std::fflush(terminal.get());
    std::string typed(LONGEST_PHRASE + 3, '\0');
    const bool got = std::fgets(typed.data(), static_cast<int>(typed.size()), terminal.get()) != nullptr;
    tcsetattr(fileno(terminal.get()), TCSAFLUSH, &before);
    std::fputs("\n", terminal.get());
    if (stop_requested()) {
        wipe(typed);
        throw stopped();
    }
    release_stop_signals();
    typed.resize(got ? typed.find('\0') : 0);
    drop_line_end(typed);
    return typed;
}

// scrypt (Percival 2009). The salt is the same for all, because a receiver needs its key before it hears anything.
secret_key key_of_phrase(std::string phrase)
{
    constexpr char SALT[] = "kosc-transfer-01";
    constexpr uint64_t N = 1U << 17;
    constexpr uint32_t R = 8, P = 1;
    if (phrase.empty() || phrase.size() > LONGEST_PHRASE) {
        wipe(phrase);
        throw std::runtime_error("a pass phrase has 1 to 1024 bytes");
    }
    secret_key key;
    const bool done = crypto_pwhash_scryptsalsa208sha256_ll(reinterpret_cast<const uint8_t*>(phrase.data()),
                                                            phrase.size(), reinterpret_cast<const uint8_t*>(SALT),
                                                            sizeof SALT - 1, N, R, P, key.bytes.data(), KEY_BYTES) == 0;
    wipe(phrase);
    if (!done) {
        throw std::runtime_error("not enough memory to make a key of the pass phrase");
    }
    return key;
}

} // namespace

secret_key::~secret_key() { sodium_memzero(bytes.data(), bytes.size()); }

std::optional<secret_key> key_of(const key_options& options, bool twice)
{
    start_sodium();
    if (!options.key_file.empty()) {
        return key_in_file(options.key_file);
    }
    if (!options.phrase_file.empty()) {
        std::string phrase = read_bytes(options.phrase_file, LONGEST_PHRASE + 2);
        drop_line_end(phrase);
        return key_of_phrase(phrase);
    }
    if (options.ask) {
        std::string phrase = asked("Pass phrase");
        std::string again = twice ? asked("The same again") : phrase;
        const bool same = again == phrase;
        wipe(again);
        if (!same) {
            wipe(phrase);
            throw std::runtime_error("the two pass phrases differ");
        }
        return key_of_phrase(phrase);
    }
    return std::nullopt;
}

void make_key_file(const std::string& path)
{
    start_sodium();
    secret_key key;
    randombytes_buf(key.bytes.data(), KEY_BYTES);
    char digits[2 * KEY_BYTES + 1];
    sodium_bin2hex(digits, sizeof digits, key.bytes.data(), KEY_BYTES);
    digits[2 * KEY_BYTES] = '\n';
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) {
        throw file_error("write", path);
    }
    const bool written = ::write(file, digits, sizeof digits) == static_cast<ssize_t>(sizeof digits);
    sodium_memzero(digits, sizeof digits);
    if (::close(file) != 0 || !written) {
        const std::runtime_error error = file_error("write", path);
        ::unlink(path.c_str());
        throw error;
    }
}

payload seal(const payload& content, const secret_key& key, uint64_t time)
{
    std::vector<uint8_t> plain;
    for (size_t i = 0; i < TIME; ++i) {
        plain.push_back(static_cast<uint8_t>(time >> 8 * i));
    }
    plain.push_back(static_cast<uint8_t>(content.kind));
    plain.insert(plain.end(), content.bytes.begin(), content.bytes.end());
    payload made{content.kind + KOSC_TRANSFER_SEALED, std::vector<uint8_t>(NONCE + TAG + plain.size())};
    randombytes_buf(made.bytes.data(), NONCE);
    crypto_secretbox_easy(made.bytes.data() + NONCE, plain.data(), plain.size(), made.bytes.data(), key.bytes.data());
    return made;
}

void seal_opener::forget(uint64_t now)
{
    for (auto each = taken_.begin(); each != taken_.end();) {
        const bool over = window_ > 0.0 && static_cast<double>(now) - static_cast<double>(each->second) > window_;
        each = over ? taken_.erase(each) : std::next(each);
    }
}

std::optional<payload> seal_opener::open(const payload& sealed, uint64_t now, std::string& reason)
{
    const std::vector<uint8_t>& box = sealed.bytes;
    std::vector<uint8_t> plain(box.size() - std::min(box.size(), NONCE + TAG));
    if (box.size() < SEAL_BYTES || crypto_secretbox_open_easy(plain.data(), box.data() + NONCE, box.size() - NONCE,
                                                              box.data(), key_.bytes.data()) != 0) {
        reason = "it is sealed with another key, or forged";
        return std::nullopt;
    }
    uint64_t time = 0;
    for (size_t i = 0; i < TIME; ++i) {
        time |= static_cast<uint64_t>(plain[i]) << 8 * i;
    }
    if (plain[TIME] + uint32_t{KOSC_TRANSFER_SEALED} != sealed.kind) {
        reason = "it is not of the kind that it was sealed as";
        return std::nullopt;
    }
    const double age = static_cast<double>(now) - static_cast<double>(time);
    if (window_ > 0.0 && std::abs(age) > window_) {
        reason = "it was sealed " + std::to_string(std::llround(std::abs(age))) + " s " +
                 (age > 0.0 ? "ago" : "in the future");
        return std::nullopt;
    }
    forget(now);
    if (!taken_.emplace(std::vector<uint8_t>(box.begin(), box.begin() + NONCE), time).second) {
        reason = "it has been received before";
        return std::nullopt;
    }
    return payload{plain[TIME], {plain.begin() + TIME + 1, plain.end()}};
}
