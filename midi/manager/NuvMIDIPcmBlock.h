// The renderer's unit of sound: 64 frames of interleaved signed 16-bit little-endian
// stereo at 48 000 Hz (256 bytes, 1.33 ms).
#ifndef NUV_MIDI_PCM_BLOCK_H
#define NUV_MIDI_PCM_BLOCK_H

#include "NuvMIDISynthSettings.h" // kNuvMIDISampleRate

constexpr int kNuvMIDIBlockFrames = 64;
constexpr int kNuvMIDIBlockBytes = kNuvMIDIBlockFrames * 4;

// A block counts as silent when every byte of its first and its last frame is 0 or 1;
// only those two frames are looked at.
inline bool NuvMIDIBlockIsSilent(const unsigned char* block) {
    static const int kProbes[] = {0, 1, 2, 3, 255, 254, 253, 252};
    for (int at : kProbes)
        if (block[at] > 1)
            return false;
    return true;
}

// True when no sample of the block is beyond one step from zero: what the synthesizer's
// dither alone produces once every voice and effect tail has died away.
inline bool NuvMIDIBlockIsDitherOnly(const unsigned char* block) {
    for (int at = 0; at < kNuvMIDIBlockBytes; at += 2) {
        const int sample = static_cast<short>(block[at] | (block[at + 1] << 8));
        if (sample > 1 || sample < -1)
            return false;
    }
    return true;
}

#endif
