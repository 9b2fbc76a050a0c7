// The gain that a sound type's volume level puts on the samples of its streams.
#ifndef NUV_PLATFORM_SOUND_VOLUME_H
#define NUV_PLATFORM_SOUND_VOLUME_H

#include <cstdint>

#include "sound_manager.h"

constexpr int kNuvSoundMaxVolume = 15;
// Gain of the sound type's current level in 1/65536 steps (65536: unchanged).
int32_t NuvSoundVolume_GainQ16(sound_type_e type);

#endif
