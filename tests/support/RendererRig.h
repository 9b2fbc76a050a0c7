// A renderer on a FluidSynth synthesizer of its own (48 000 Hz), fed through the path of the
// MIDI driver so that a resting renderer wakes; stopped and released in reverse order.
#ifndef NUV_TEST_RENDERER_RIG_H
#define NUV_TEST_RENDERER_RIG_H

#include <fluidsynth.h>

#include "NuvMIDIRenderer.h"
#include "NuvMIDISynthActivity.h"

struct RendererRig {
    RendererRig() = default;
    ~RendererRig() {
        if (created) {
            renderer.StopRenderer();
            renderer.Destroy();
        }
        delete_fluid_synth(synth);
        delete_fluid_settings(settings);
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
        NuvMIDISynthActivity::HandleEvent(&activity, event);
        delete_fluid_midi_event(event);
    }

    fluid_settings_t* settings = At48kHz(new_fluid_settings());
    fluid_synth_t* synth = new_fluid_synth(settings);
    NuvMIDISynthActivity activity{synth};
    NuvMIDIRenderer renderer{&activity};
    bool created = false; // set once renderer.Create succeeded

private:
    static fluid_settings_t* At48kHz(fluid_settings_t* settings) {
        fluid_settings_setnum(settings, "synth.sample-rate", 48000);
        return settings;
    }
};

#endif
