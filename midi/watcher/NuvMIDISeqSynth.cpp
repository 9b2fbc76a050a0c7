#include "NuvMIDISeqSynth.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/stat.h>

#include "NuvLog"
#include "NuvMIDISynthActivity.h"
#include "NuvMIDIWatcherNames.h"
#include "NuvResult"

namespace {

// Both listening ports take writes from subscribers; the sending port offers reads.
const unsigned int kListenCaps = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
const unsigned int kSendCaps = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
const size_t kInputPoolEvents = 2000;
// How long a send waits for room in the sequencer's pool before it gives the event up.
const int kRoomWaitMs = 1000;

// Debian's FluidSynth opens libinstpatch (its DLS loader) with every synthesizer and closes
// it with the synthesizer. Each open after a close registers the library's types anew and
// loses the old ones: 2.4 KiB for every synthesizer made, so every library cycle. One open
// held for the life of the process turns the synthesizers' opens and closes into counts.
// A FluidSynth without libinstpatch has nothing to hold.
void HoldInstpatchOpen() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Loaded already when FluidSynth uses it; the handle is kept, as is the open.
        void* instpatch = dlopen("libinstpatch-1.0.so.2", RTLD_NOW | RTLD_NOLOAD);
        if (instpatch == nullptr)
            return;
        if (auto open = reinterpret_cast<void (*)()>(dlsym(instpatch, "ipatch_init")))
            open();
    });
}

void LogSequencerFailure(const char* what) {
    print_dlog(NUV_LOG_INFO, "\n[NuvMIDIWatcher::m_CreateSequencer]%s\n\n", what);
}

// Waits until the sequencer can take more output; false after kRoomWaitMs.
bool WaitForRoom(snd_seq_t* seq) {
    std::vector<struct pollfd> fds(
        static_cast<size_t>(snd_seq_poll_descriptors_count(seq, POLLOUT)));
    const int count =
        snd_seq_poll_descriptors(seq, fds.data(), static_cast<unsigned>(fds.size()), POLLOUT);
    return count > 0 && poll(fds.data(), static_cast<nfds_t>(count), kRoomWaitMs) > 0;
}

// Writes one event out of the (non-blocking) handle. 0, or the sequencer's error.
int Output(snd_seq_t* seq, snd_seq_event_t* event) {
    int result = snd_seq_event_output(seq, event);
    while (result == -EAGAIN && WaitForRoom(seq))
        result = snd_seq_event_output(seq, event);
    if (result < 0)
        return result;
    while ((result = snd_seq_drain_output(seq)) == -EAGAIN && WaitForRoom(seq)) {
    }
    return result < 0 ? result : 0;
}

NuvSeqSubscription NewSubscription(snd_seq_addr_t sender, snd_seq_addr_t dest) {
    NuvSeqSubscription subscription = NuvNewSubscription();
    if (subscription) {
        snd_seq_port_subscribe_set_sender(subscription.get(), &sender);
        snd_seq_port_subscribe_set_dest(subscription.get(), &dest);
    }
    return subscription;
}

} // namespace

NuvMIDISeqSynth::NuvMIDISeqSynth() = default;
NuvMIDISeqSynth::~NuvMIDISeqSynth() = default;

int NuvMIDISeqSynth::OpenSequencer() {
    // Held until every step has succeeded, so that a failure closes the client again.
    snd_seq_t* opened = nullptr;
    if (snd_seq_open(&opened, "default", SND_SEQ_OPEN_DUPLEX, 0) < 0) {
        LogSequencerFailure("Could not open sequencer");
        return NUV_ERR_GENERAL;
    }
    NuvSeqHandle seq(opened);
    if (snd_seq_set_client_name(seq.get(), kWatcherClientName) < 0) {
        LogSequencerFailure("Could not set client name");
        return NUV_ERR_GENERAL;
    }
    // Created in this order, the ports get the numbers 0, 1 and 2.
    if (snd_seq_create_simple_port(seq.get(), "listen:1", kListenCaps,
                                   SND_SEQ_PORT_TYPE_APPLICATION) < 0 ||
        snd_seq_create_simple_port(seq.get(), "listen:2", kListenCaps,
                                   SND_SEQ_PORT_TYPE_APPLICATION) < 0) {
        LogSequencerFailure("Could not open input port");
        return NUV_ERR_GENERAL;
    }
    if (snd_seq_create_simple_port(seq.get(), "anounce:1", kSendCaps,
                                   SND_SEQ_PORT_TYPE_APPLICATION) < 0) {
        LogSequencerFailure("Could not open output port");
        return NUV_ERR_GENERAL;
    }
    // Client starts and exits reach port 0 from the system announce port.
    snd_seq_connect_from(seq.get(), kAnnouncePort, SND_SEQ_CLIENT_SYSTEM,
                         SND_SEQ_PORT_SYSTEM_ANNOUNCE);
    if (snd_seq_nonblock(seq.get(), 1) < 0) {
        LogSequencerFailure(" Could not unblock sequencer");
        return NUV_ERR_GENERAL;
    }
    // Room for 2000 events waiting to be read, the kernel's largest input pool, and a read
    // buffer that takes them all in one read: the kernel drops everything waiting when its
    // pool overflows, so a burst must find room there.
    snd_seq_set_client_pool_input(seq.get(), kInputPoolEvents);
    snd_seq_set_input_buffer_size(seq.get(), kInputPoolEvents * sizeof(snd_seq_event_t));
    m_seq = std::move(seq);
    return 0;
}

int NuvMIDISeqSynth::CreateSynthesizer(Kind kind) {
    // Held until the synthesizer is ready, so that a failure releases what was made.
    NuvFluidSettings settings(new_fluid_settings());
    NuvFluidSynth synth;
    std::unique_ptr<NuvMIDISynthActivity> activity;
    NuvFluidMIDIDriver midiDriver;
    HoldInstpatchOpen();
    if (settings) {
        NuvMIDIApplySynthSettings(settings.get());
        synth.reset(new_fluid_synth(settings.get()));
        if (synth) {
            activity.reset(new NuvMIDISynthActivity(synth.get()));
            if (kind == Kind::kLibrary)
                midiDriver.reset(new_fluid_midi_driver(
                    settings.get(), NuvMIDISynthActivity::HandleEvent, activity.get()));
        }
    }
    if (!synth || (kind == Kind::kLibrary && !midiDriver)) {
        print_dlog(NUV_LOG_CRITICAL,
                   "\n[NuvMIDIWatcher::m_CreateSynthesizer] new_fluid_synth or "
                   "new_fluid_midi_driver failed.m_pSynthHandle=[%p],m_pMIDIDriver=[%p].\n ",
                   static_cast<void*>(synth.get()), static_cast<void*>(midiDriver.get()));
        return NUV_ERR_GENERAL;
    }

    struct stat status;
    if (kind == Kind::kLibrary && lstat(kDefaultSoundFont, &status) == 0) {
        const int fontId = fluid_synth_sfload(synth.get(), kDefaultSoundFont, 1);
        if (fontId < 0) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIWatcher::m_CreateSynthesizer] Unable to load default sound "
                       "font file\n ");
            return NUV_ERR_GENERAL;
        }
        print_dlog(NUV_LOG_TRACE, "\n[NuvMIDIWatcher::m_CreateSynthesizer] Font file id [%d]\n",
                   fontId);
    }

    // A synthesizer made again replaces the last one, released in the reverse order.
    m_driver.reset();
    m_activity.reset();
    m_synth.reset();
    m_settings = std::move(settings);
    m_synth = std::move(synth);
    m_activity = std::move(activity);
    m_driver = std::move(midiDriver);
    return 0;
}

int NuvMIDISeqSynth::ClientId() const {
    return snd_seq_client_id(m_seq.get());
}

int NuvMIDISeqSynth::Send(snd_seq_event_t& event) {
    // Delivered at once, without a queue, to whoever subscribed to the sending port; the
    // sequencer fills in our client number.
    event.queue = SND_SEQ_QUEUE_DIRECT;
    event.source.port = kSendPort;
    event.dest.client = SND_SEQ_ADDRESS_SUBSCRIBERS;
    event.dest.port = SND_SEQ_ADDRESS_UNKNOWN;
    if (!m_seq)
        return -ENODEV;
    std::lock_guard<std::mutex> lock(m_sendLock);
    const int result = Output(m_seq.get(), &event);
    // A refused event stays at the head of the output buffer and would hold back everything
    // sent after it, from every device: it is dropped.
    if (result < 0)
        snd_seq_drop_output(m_seq.get());
    return result;
}

int NuvMIDISeqSynth::Subscribe(snd_seq_addr_t sender, snd_seq_addr_t dest) {
    NuvSeqSubscription subscription = NewSubscription(sender, dest);
    if (!m_seq)
        return -ENODEV;
    return subscription ? snd_seq_subscribe_port(m_seq.get(), subscription.get()) : -ENOMEM;
}

int NuvMIDISeqSynth::Unsubscribe(snd_seq_addr_t sender, snd_seq_addr_t dest) {
    NuvSeqSubscription subscription = NewSubscription(sender, dest);
    if (!m_seq)
        return -ENODEV;
    if (!subscription)
        return -ENOMEM;
    const int result = snd_seq_get_port_subscription(m_seq.get(), subscription.get());
    return result != 0 ? result : snd_seq_unsubscribe_port(m_seq.get(), subscription.get());
}

int NuvMIDISeqSynth::Listen(int client, int port) {
    return m_seq ? snd_seq_connect_from(m_seq.get(), kInputPort, client, port) : -ENODEV;
}

int NuvMIDISeqSynth::Feed(int client, int port) {
    return m_seq ? snd_seq_connect_to(m_seq.get(), kSendPort, client, port) : -ENODEV;
}

int NuvMIDISeqSynth::LoadFont(const char* path) {
    std::lock_guard<std::mutex> lock(m_fontLock);
    return fluid_synth_sfload(m_synth.get(), path, 1);
}

int NuvMIDISeqSynth::UnloadFont(int fontId) {
    std::lock_guard<std::mutex> lock(m_fontLock);
    return fluid_synth_sfunload(m_synth.get(), fontId, 1);
}

bool NuvMIDISeqSynth::ListPresets(int fontId, std::vector<Preset>* out) {
    std::lock_guard<std::mutex> lock(m_fontLock);
    fluid_sfont_t* font = fluid_synth_get_sfont_by_id(m_synth.get(), fontId);
    if (font == nullptr)
        return false;
    const int offset = fluid_synth_get_bank_offset(m_synth.get(), fontId);
    fluid_sfont_iteration_start(font);
    while (fluid_preset_t* preset = fluid_sfont_iteration_next(font))
        out->push_back({fluid_preset_get_banknum(preset) + offset, fluid_preset_get_num(preset),
                        fluid_preset_get_name(preset)});
    return true;
}

int NuvMIDISeqSynth::GetCC(int channel, int controller, int* value) {
    return fluid_synth_get_cc(m_synth.get(), channel, controller, value);
}

void NuvMIDISeqSynth::GetProgram(int channel, int* fontId, int* bank, int* program) {
    fluid_synth_get_program(m_synth.get(), channel, fontId, bank, program);
}

void NuvMIDISeqSynth::GetPitchBend(int channel, int* value) {
    fluid_synth_get_pitch_bend(m_synth.get(), channel, value);
}

void NuvMIDISeqSynth::ResetSynth() {
    fluid_synth_system_reset(m_synth.get());
}

fluid_player_t* NuvMIDISeqSynth::NewPlayer() {
    fluid_settings_t* settings = fluid_synth_get_settings(m_synth.get());
    // Paced by the system clock, as FluidSynth 1.x did, not by the rendering of samples; the
    // player's callbacks then run on its timer thread, outside the synthesizer's lock.
    fluid_settings_setstr(settings, "player.timing-source", "system");
    // 1.x left the synthesizer alone when a file starts.
    fluid_settings_setint(settings, "player.reset-synth", 0);
    fluid_player_t* player = new_fluid_player(m_synth.get());
    // The file's notes wake a resting renderer as the MIDI driver's do.
    if (player != nullptr)
        fluid_player_set_playback_callback(player, NuvMIDISynthActivity::HandleEvent,
                                           m_activity.get());
    return player;
}

int NuvMIDISeqSynth::Render(int frames, void* buffer) {
    return fluid_synth_write_s16(m_synth.get(), frames, buffer, 0, 2, buffer, 1, 2);
}

int NuvMIDISeqSynth::ActiveVoices() {
    return fluid_synth_get_active_voice_count(m_synth.get());
}

int NuvMIDISeqSynth::InternalBufferSize() {
    return fluid_synth_get_internal_bufsize(m_synth.get());
}

void NuvMIDISeqSynth::WaitForActivity(const std::atomic<bool>& stop) {
    m_activity->Wait(stop);
}

void NuvMIDISeqSynth::NotifyActivity() {
    m_activity->Notify();
}
