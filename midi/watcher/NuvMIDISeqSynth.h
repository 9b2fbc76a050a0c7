// The library's sequencer client "MIDI Watcher" and its one FluidSynth synthesizer, owned
// together: the sequencer handle, the synthesizer's settings, the synthesizer, the
// activity that feeds it and FluidSynth's sequencer MIDI driver. The watcher creates it;
// connectors, streams, the renderer and the file player reach the handles only through it.
//
// Who may call what, on which thread:
// - OpenSequencer, CreateSynthesizer and the destructor: the watcher, while its thread is
//   not running (Create and Destroy on the entry's thread). The destructor releases the
//   driver, the activity, the synthesizer, the settings and the sequencer, in this order.
// - Seq(): the watcher's thread reads events and asks about clients through it; the
//   client records carry it (and Synth()) because the framework's contract names them.
// - Without a sequencer (tools and tests) every sequencer call answers -ENODEV.
// - Send: any thread. The send lock keeps two senders out of the handle's one output
//   buffer; the watcher's reading uses the input side and never takes it.
// - Subscribe, Unsubscribe, Listen, Feed: any thread; the kernel orders subscriptions.
// - LoadFont, UnloadFont, ListPresets: any thread, one at a time under the font lock, so a
//   listing never walks a font that an unload frees and two listings never share a font's
//   single iteration cursor.
// - The synthesizer's queries, ResetSynth, NewPlayer, Render and the activity: any thread;
//   FluidSynth serialises its own calls.
#ifndef NUV_MIDI_SEQ_SYNTH_H
#define NUV_MIDI_SEQ_SYNTH_H

#include <alsa/asoundlib.h>
#include <fluidsynth.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NuvMIDIHandles.h"
#include "NuvMIDISynthSettings.h"

class NuvMIDISynthActivity;

class NuvMIDISeqSynth {
public:
    // The client's ports: announcements in, device input in, output to subscribers.
    static constexpr int kAnnouncePort = 0;
    static constexpr int kInputPort = 1;
    static constexpr int kSendPort = 2;
    // Loaded at start when the file exists, and by the name "Default".
    static constexpr const char* kDefaultSoundFont = kNuvMIDIDefaultSoundFont;

    struct Preset {
        int bank; // the font's bank offset applied
        int program;
        std::string name;
    };

    NuvMIDISeqSynth();
    ~NuvMIDISeqSynth();
    NuvMIDISeqSynth(const NuvMIDISeqSynth&) = delete;
    NuvMIDISeqSynth& operator=(const NuvMIDISeqSynth&) = delete;

    // 0, or NUV_ERR_GENERAL with nothing made (the watcher logs why in its own words).
    int OpenSequencer();
    // The library's synthesizer: its sequencer MIDI driver and the default font when the
    // file exists. kBare makes one with neither, which only this object's calls reach (for
    // tests without a sequencer). 0, or NUV_ERR_GENERAL with nothing made.
    enum class Kind { kLibrary, kBare };
    int CreateSynthesizer(Kind kind = Kind::kLibrary);

    snd_seq_t* Seq() const { return m_seq.get(); }
    fluid_synth_t* Synth() const { return m_synth.get(); }
    int ClientId() const;

    // Writes `event` at once from the sending port to its subscribers. 0, or the
    // sequencer's error, after dropping the refused event; waits up to a second for room.
    int Send(snd_seq_event_t& event);
    // Subscriptions, each the sequencer's result (0 on success). Between any two ports:
    int Subscribe(snd_seq_addr_t sender, snd_seq_addr_t dest);
    // (fails without touching anything when the pair is not subscribed)
    int Unsubscribe(snd_seq_addr_t sender, snd_seq_addr_t dest);
    // From a device's port to the input port, and from the sending port to a client's port:
    int Listen(int client, int port);
    int Feed(int client, int port);

    // The font's id, or FLUID_FAILED. Every channel re-selects its preset, now from the
    // new font on top.
    int LoadFont(const char* path);
    int UnloadFont(int fontId); // FLUID_OK or FLUID_FAILED
    // Every preset of the font in the font's own order; false when no font has this id.
    bool ListPresets(int fontId, std::vector<Preset>* out);

    int GetCC(int channel, int controller, int* value);
    void GetProgram(int channel, int* fontId, int* bank, int* program);
    void GetPitchBend(int channel, int* value);
    void ResetSynth();
    // A file player on the synthesizer, paced as the synthesizer's first users knew it,
    // whose events go through the activity; null when FluidSynth cannot make one.
    fluid_player_t* NewPlayer();
    // Renders `frames` interleaved stereo 16-bit frames; FLUID_OK or FLUID_FAILED.
    int Render(int frames, void* buffer);
    int ActiveVoices();
    int InternalBufferSize();
    // MIDI on its way into the synthesizer, for a renderer that rests while nothing sounds:
    // returns once an event has been handled since the last return, or once `stop` is set
    // (whoever sets it calls NotifyActivity afterwards).
    void WaitForActivity(const std::atomic<bool>& stop);
    void NotifyActivity();
    // What the MIDI driver and the file player hand their events to; null without a
    // synthesizer.
    NuvMIDISynthActivity* Activity() const { return m_activity.get(); }

private:
    friend class NuvMIDIWatcherTestAccess;

    // Creation order; members are released in the reverse.
    NuvSeqHandle m_seq;
    NuvFluidSettings m_settings;
    NuvFluidSynth m_synth;
    std::unique_ptr<NuvMIDISynthActivity> m_activity; // the driver's handler
    NuvFluidMIDIDriver m_driver;

    std::mutex m_sendLock;
    std::mutex m_fontLock;
};

#endif
