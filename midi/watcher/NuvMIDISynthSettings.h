// The settings of the library's synthesizer, written once: the library's watcher creates
// its synthesizer with them, and nuvmidi's offline render its own, so that a rendered file
// sounds as the device plays.
#ifndef NUV_MIDI_SYNTH_SETTINGS_H
#define NUV_MIDI_SYNTH_SETTINGS_H

#include <fluidsynth.h>

// Loaded into every synthesizer when the file exists.
constexpr const char* kNuvMIDIDefaultSoundFont = "/usr/share/tallowin/DefaultSF.sf2";
// The synthesizer renders at the rate that the renderer plays.
constexpr int kNuvMIDISampleRate = 48000;

inline void NuvMIDIApplySynthSettings(fluid_settings_t* settings) {
    // Sound leaves only through the renderer, never through a FluidSynth audio driver.
    fluid_settings_setstr(settings, "audio.driver", "file");
    fluid_settings_setnum(settings, "synth.sample-rate", kNuvMIDISampleRate);
    fluid_settings_setint(settings, "audio.periods", 8);
    fluid_settings_setint(settings, "synth.polyphony", 64);
    fluid_settings_setnum(settings, "synth.gain", 1.0);
    fluid_settings_setint(settings, "synth.min-note-length", 10); // milliseconds
    // FluidSynth 2 no longer defaults to the ALSA sequencer driver; the watcher finds the
    // synthesizer by the "FLUID" name of that driver's sequencer client.
    fluid_settings_setstr(settings, "midi.driver", "alsa_seq");
    // As 1.x, which had no such setting: the watcher makes the one link to the synthesizer.
    fluid_settings_setint(settings, "midi.autoconnect", 0);
    // Several threads call the synthesizer without a lock of ours (1.x's default too).
    fluid_settings_setint(settings, "synth.threadsafe-api", 1);
}

#endif
