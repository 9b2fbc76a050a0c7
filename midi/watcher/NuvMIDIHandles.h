// Owning holders for ALSA sequencer and FluidSynth objects. A holder releases its object
// when it goes out of scope, so a creation that fails half-way releases what it had made;
// on success its owner takes the raw handle with release().
#ifndef NUV_MIDI_HANDLES_H
#define NUV_MIDI_HANDLES_H

#include <alsa/asoundlib.h>
#include <fluidsynth.h>

#include <memory>

template <typename T, void (*Release)(T*)> struct NuvReleaser {
    void operator()(T* object) const { Release(object); }
};

namespace nuv_detail {
inline void CloseSeq(snd_seq_t* seq) {
    snd_seq_close(seq);
}
} // namespace nuv_detail

using NuvSeqHandle = std::unique_ptr<snd_seq_t, NuvReleaser<snd_seq_t, nuv_detail::CloseSeq>>;
using NuvSeqClientInfo =
    std::unique_ptr<snd_seq_client_info_t,
                    NuvReleaser<snd_seq_client_info_t, snd_seq_client_info_free>>;
using NuvSeqPortInfo =
    std::unique_ptr<snd_seq_port_info_t, NuvReleaser<snd_seq_port_info_t, snd_seq_port_info_free>>;
using NuvSeqSubscription =
    std::unique_ptr<snd_seq_port_subscribe_t,
                    NuvReleaser<snd_seq_port_subscribe_t, snd_seq_port_subscribe_free>>;

using NuvFluidSettings =
    std::unique_ptr<fluid_settings_t, NuvReleaser<fluid_settings_t, delete_fluid_settings>>;
using NuvFluidSynth =
    std::unique_ptr<fluid_synth_t, NuvReleaser<fluid_synth_t, delete_fluid_synth>>;
using NuvFluidMIDIDriver =
    std::unique_ptr<fluid_midi_driver_t,
                    NuvReleaser<fluid_midi_driver_t, delete_fluid_midi_driver>>;

// Zero-filled sequencer information objects (null only when memory is exhausted).
inline NuvSeqClientInfo NuvNewClientInfo() {
    snd_seq_client_info_t* info = nullptr;
    snd_seq_client_info_malloc(&info);
    return NuvSeqClientInfo(info);
}

inline NuvSeqPortInfo NuvNewPortInfo() {
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_malloc(&info);
    return NuvSeqPortInfo(info);
}

inline NuvSeqSubscription NuvNewSubscription() {
    snd_seq_port_subscribe_t* subscription = nullptr;
    snd_seq_port_subscribe_malloc(&subscription);
    return NuvSeqSubscription(subscription);
}

#endif
