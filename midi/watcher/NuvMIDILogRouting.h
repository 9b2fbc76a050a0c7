// FluidSynth and ALSA's library write their own messages to standard error; the library
// hands them to print_dlog instead, so that one threshold and one sink govern every line a
// host sees.
#ifndef NUV_MIDI_LOG_ROUTING_H
#define NUV_MIDI_LOG_ROUTING_H

// Installs the routing once per process (later calls do nothing). It stays until the
// library is unloaded, when FluidSynth's and ALSA's own handlers are put back.
void NuvMIDIRouteLibraryLogs();

#endif
