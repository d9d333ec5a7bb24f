#include "kosc/bands.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "kosc/config.h"
#include "log/log_macros.h"

namespace {

constexpr double SPACING = 48000.0 / 1024; // Hz from one subcarrier to the next
constexpr uint32_t SUBCARRIERS = 64;
// Below, mains hum and rumble; nearer to either end of the spectrum, the receiver's band-pass filter diverges.
constexpr double LOWEST_HZ = 250;
constexpr double HIGHEST_HZ = 23500;
constexpr uint32_t FIRST = static_cast<uint32_t>(LOWEST_HZ / SPACING) + 1;
constexpr uint32_t LAST = static_cast<uint32_t>(HIGHEST_HZ / SPACING) - (SUBCARRIERS - 1);
static_assert(FIRST == 6 && LAST == 438, "as documented, and logged below");

constexpr ko_soundcommu_band_t make_band(const char* name, uint32_t first, const char* use)
{
    return {name, use, first, SPACING * first, SPACING * (first + SUBCARRIERS - 1)};
}

// Edges by what codecs and loudspeakers let pass; docs/bands.md has the figures.
constexpr ko_soundcommu_band_t BANDS[] = {
    // As low as the pass band of a telephone line reaches, 300 to 3400 Hz: speech codecs of low rates keep what is low.
    make_band("telephone", 7, "telephone lines (G.711), video calls, voice messages, coded music; loud to people"),
    // Above most of the power of speech, below the 6 to 8 kHz where wideband speech codecs stop.
    make_band("voice", 43, "video calls and voice messages (Opus from 12 kbit/s on), coded music; loud to people"),
    // Above speech and much of music, below the 10 to 16 kHz where music codecs of low rates and small loudspeakers
    // stop.
    make_band("audible", 128, "coded music (MP3, AAC or Vorbis from 64 kbit/s on); heard by people"),
    // As high as loudspeakers and codecs that end at 16 kHz let it be, where most people hear little.
    make_band("high", 272, "coded music (from 64 kbit/s on), loudspeakers that end at 16 kHz; faint to many adults"),
    // Above what most adults hear, below the 21 to 22 kHz where converters of 44.1 kHz stop.
    make_band("near-ultrasonic", 384, "from loudspeaker to microphone with no codec between; hardly heard by adults"),
};
#define BAND_NAMES "telephone, voice, audible, high, near-ultrasonic" // as above, for the log

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Reads digits, and more of them behind a point; null unless there is one at least. strtod() would read what the
// locale says, infinities and hexadecimal digits.
const char* read_number(const char* text, double* value)
{
    const char* const begin = text;
    double unit = 1.0;
    for (; is_digit(*text); ++text) {
        *value = *value * 10 + (*text - '0');
    }
    if (text != begin && *text == '.') {
        for (++text; is_digit(*text); ++text) {
            unit /= 10;
            *value += unit * (*text - '0');
        }
    }
    return text != begin ? text : nullptr;
}

} // namespace

const ko_soundcommu_band_t* ko_soundcommu_get_band(uint32_t index)
{
    return index < std::size(BANDS) ? &BANDS[index] : nullptr;
}

int ko_soundcommu_find_band(const char* text, ko_soundcommu_band_t* band)
{
    KOSC_RETURN_IF(text == nullptr || band == nullptr, -1, "text or band is NULL");
    for (const ko_soundcommu_band_t& named : BANDS) {
        if (std::strcmp(text, named.name) == 0) {
            *band = named;
            return 0;
        }
    }
    double hz = 0.0;
    const char* const end = read_number(text, &hz);
    KOSC_RETURN_IF(end == nullptr || *end != '\0', -1,
                   "no band is called %.32s; a band is " BAND_NAMES " or where it begins in Hz", text);
    const auto first = static_cast<uint32_t>(std::min(hz / SPACING + 0.5, 1e6));
    soundcomm_cfg_t cfg;
    if (!soundcomm_cfg_for_band(first, &cfg)) {
        return -1;
    }
    const auto* const named = std::find_if(std::begin(BANDS), std::end(BANDS), [first](const ko_soundcommu_band_t& b) {
        return b.first_subcarrier == first;
    });
    *band = named != std::end(BANDS) ? *named : make_band("", first, "");
    return 0;
}

bool soundcomm_cfg_for_band(uint32_t first_subcarrier, soundcomm_cfg_t* cfg)
{
    KOSC_RETURN_IF(cfg == nullptr, false, "cfg is NULL");
    KOSC_RETURN_IF(first_subcarrier < FIRST || first_subcarrier > LAST, false,
                   "a band from subcarrier %u on does not lie between 250 and 23500 Hz; the first subcarrier is 6 to "
                   "438",
                   first_subcarrier);
    *cfg = *soundcomm_default_cfg();
    cfg->ofdm_cfg.sc_start_idx = first_subcarrier;
    return true;
}
