// --band, for every command that has it. A word that is no band throws std::runtime_error with the library's sentence.
#ifndef KOSC_TOOL_BAND_OPTION_H
#define KOSC_TOOL_BAND_OPTION_H

#include "audio/sound_bands.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

// Adds --band NAME|HZ, which overwrites `band`; it must live as long as the parser.
CLI::Option* add_band_option(CLI::App& command, sound_band& band);
// Adds --band NAME|HZ,...|wide|all, which overwrites `bands` by one or more, each but once.
void add_bands_option(CLI::App& command, band_list& bands);
// The same for who sends: bands that overlap are refused.
void add_sending_bands_option(CLI::App& command, band_list& bands);

#endif
