// A renderer on a synthesizer of its own (the library's settings, 48 000 Hz among them, but
// no MIDI driver), fed through the path of the MIDI driver so that a resting renderer wakes;
// stopped before the synthesizer goes.
#ifndef NUV_TEST_RENDERER_RIG_H
#define NUV_TEST_RENDERER_RIG_H

#include <fluidsynth.h>

#include "NuvMIDIRenderer.h"
#include "NuvMIDISeqSynth.h"
#include "NuvMIDISynthActivity.h"

struct RendererRig {
    RendererRig() = default;
    ~RendererRig() {
        if (created) {
            renderer.StopRenderer();
            renderer.Destroy();
        }
    }
    RendererRig(const RendererRig&) = delete;
    RendererRig& operator=(const RendererRig&) = delete;

    // A channel message (status byte `type`, its two data bytes) as the MIDI driver hands it.
    void Send(int type, int channel, int data1, int data2) {
        fluid_midi_event_t* event = new_fluid_midi_event();
        fluid_midi_event_set_type(event, type);
        fluid_midi_event_set_channel(event, channel);
        fluid_midi_event_set_key(event, data1);      // the controller of a control change too
        fluid_midi_event_set_velocity(event, data2); // and its value
        NuvMIDISynthActivity::HandleEvent(owner.Activity(), event);
        delete_fluid_midi_event(event);
    }

    NuvMIDISeqSynth owner;
    fluid_synth_t* synth = Bare(owner);
    NuvMIDIRenderer renderer{owner};
    bool created = false; // set once renderer.Create succeeded

private:
    static fluid_synth_t* Bare(NuvMIDISeqSynth& owner) {
        owner.CreateSynthesizer(NuvMIDISeqSynth::Kind::kBare);
        // FluidSynth's default gain, which the tests' levels assume.
        fluid_settings_setnum(fluid_synth_get_settings(owner.Synth()), "synth.gain", 0.2);
        return owner.Synth();
    }
};

#endif
