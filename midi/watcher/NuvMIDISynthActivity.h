// MIDI on its way into the synthesizer, seen by the renderer. FluidSynth's MIDI driver and
// the file player hand their events to HandleEvent rather than straight to the
// synthesizer, so a renderer that rests while nothing sounds learns of the next event at
// once, without a timer that wakes it to look.
#ifndef NUV_MIDI_SYNTH_ACTIVITY_H
#define NUV_MIDI_SYNTH_ACTIVITY_H

#include <fluidsynth.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

class NuvMIDISynthActivity {
public:
    explicit NuvMIDISynthActivity(fluid_synth_t* synth) : m_synth(synth) {}

    // A FluidSynth event handler; `activity` is a NuvMIDISynthActivity.
    static int HandleEvent(void* activity, fluid_midi_event_t* event) {
        auto* self = static_cast<NuvMIDISynthActivity*>(activity);
        const int result = fluid_synth_handle_midi_event(self->m_synth, event);
        self->Notify(); // after the event: a voice it starts is already counted
        return result;
    }

    void Notify() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_handled = true;
        }
        m_wake.notify_all();
    }

    // Returns once an event has been handled since the last return, or once `stop` is set
    // (whoever sets it calls Notify afterwards).
    void Wait(const std::atomic<bool>& stop) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait(lock, [&] { return m_handled || stop; });
        m_handled = false;
    }

private:
    fluid_synth_t* const m_synth;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_handled = false; // guarded by m_mutex
};

#endif
