// What people hear while a modem speaks: speech, and music.
#ifndef KOSC_LINK_NOISES_H
#define KOSC_LINK_NOISES_H

#include <string>

#include "channels.h"

namespace kosc_link {

// Speech as espeak-ng writes it, 22050 Hz and mono, brought to 48 kHz. Empty when there is no such file.
signal read_speech(const std::string& wav_name);

// Music: a bass, chords of decaying overtones that change with the bar, and drums of noise on the beat. A new piece
// for every seed; about as loud throughout.
signal make_music(double seconds, random_source* random);

} // namespace kosc_link

#endif
