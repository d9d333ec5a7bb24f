#include "commands/band_option.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "kosc/log.h"

namespace {

// The message of the log line "[ERROR][message][line number]".
std::string complaint;
void keep_complaint(const char* line)
{
    const std::string text = line;
    const size_t begin = text.find("][") + 2;
    complaint = text.substr(begin, text.rfind("][") - begin);
}

// While the command line is read, the log is not yet set up for what follows.
sound_band band_from(const std::string& text)
{
    soundcomm_set_log_callback(keep_complaint);
    soundcomm_config_log_time(0);
    soundcomm_set_log_level(KOSC_LEVEL_ERROR);
    sound_band band;
    if (ko_soundcommu_find_band(text.c_str(), &band) != 0) {
        throw std::runtime_error(complaint);
    }
    return band;
}

band_list bands_from(const std::string& text)
{
    band_list bands;
    std::istringstream words(text + ","); // so that an empty word is one too
    for (std::string word; std::getline(words, word, ',');) {
        const band_list meant = word == "all"    ? named_bands()
                                : word == "wide" ? wide_bands()
                                                 : band_list{band_from(word)};
        for (const sound_band& band : meant) {
            if (std::none_of(bands.begin(), bands.end(),
                             [&](const sound_band& each) { return each.first_subcarrier == band.first_subcarrier; })) {
                bands.push_back(band);
            }
        }
    }
    return bands;
}

CLI::Option* add(CLI::App& command, const std::function<void(const std::string&)>& take, const sound_band& usual,
                 const char* type, const char* help)
{
    return command.add_option_function<std::string>("--band", take, help)->type_name(type)->default_str(name_of(usual));
}

} // namespace

void add_sending_bands_option(CLI::App& command, band_list& bands)
{
    const auto take = [&bands](const std::string& text) {
        bands = bands_from(text);
        check_apart(bands);
    };
    add(command, take, bands.front(), "NAME|HZ,...",
        "a name that kosc info lists, or where the band begins in Hz; several at once with commas between, or wide, "
        "six side by side; the other side must use the same");
}

CLI::Option* add_band_option(CLI::App& command, sound_band& band)
{
    return add(
        command, [&band](const std::string& text) { band = band_from(text); }, band, "NAME|HZ",
        "a name that kosc info lists, or where the band begins in Hz; the other side must use the same");
}

void add_bands_option(CLI::App& command, band_list& bands)
{
    add(
        command, [&bands](const std::string& text) { bands = bands_from(text); }, bands.front(), "NAME|HZ,...",
        "a name that kosc info lists, or where the band begins in Hz; several with commas between; wide, six side by "
        "side; or all that have a name");
}
