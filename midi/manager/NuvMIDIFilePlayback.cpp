#include "NuvMIDIFilePlayback.h"

#include <string.h>
#include <unistd.h>

#include <chrono>

#include "NuvLog"
#include "NuvMIDISeqSynth.h"

namespace {

constexpr size_t kPlayThreadStackBytes = 0x100000;
// After the player has ended: its timer's last callback finishes before the synthesizer is
// reset (the play thread's pause, and a stop's).
constexpr useconds_t kEndSettleMicroseconds = 10000;
constexpr useconds_t kStopSettleMicroseconds = 21000;
// How often the play thread looks whether a player has ended that no tick announced (see
// m_AwaitEnd).
constexpr std::chrono::milliseconds kUntickedCheck{10};
constexpr std::chrono::seconds kTickedCheck{1};
const char kPlayThreadName[] = "NuvMIDIFilePlay";

} // namespace

NuvMIDIFilePlayback::NuvMIDIFilePlayback()
    : m_state(State::kIdle), m_bTicked(false), m_pPlayer(nullptr), m_pSynth(nullptr), m_fileName(),
      m_playThread() {
    pthread_attr_init(&m_threadAttr);
    pthread_attr_setstacksize(&m_threadAttr, kPlayThreadStackBytes);
    pthread_attr_setdetachstate(&m_threadAttr, PTHREAD_CREATE_DETACHED);
}

NuvMIDIFilePlayback::~NuvMIDIFilePlayback() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_EndThread(lock);
    lock.unlock();
    pthread_attr_destroy(&m_threadAttr);
}

int NuvMIDIFilePlayback::Status() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state == State::kStarting || m_state == State::kPlaying ? kStatusPlaying : kStatusIdle;
}

NuvMIDIFilePlayback::Started NuvMIDIFilePlayback::Start(const char* fileName,
                                                        NuvMIDISeqSynth& synth) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state == State::kStarting || m_state == State::kPlaying)
        return Started::kBusy;
    // The last file's notes may still be ringing, or a stopped play thread finishing.
    m_EndThread(lock);

    m_pPlayer = synth.NewPlayer();
    if (m_pPlayer == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIDeviceManager::StartStream] Player creation failed\n");
        return Started::kFailed;
    }
    fluid_player_set_tick_callback(m_pPlayer, &NuvMIDIFilePlayback::m_OnTick, this);
    memset(m_fileName, 0, sizeof m_fileName);
    strncpy(m_fileName, fileName, sizeof m_fileName - 1);
    m_pSynth = &synth;
    m_bTicked = false;
    // Playing from now on, so that a second start cannot slip in before the thread runs.
    m_state = State::kStarting;
    if (pthread_create(&m_playThread, &m_threadAttr, PlayFile, this) != 0) {
        delete_fluid_player(m_pPlayer); // never started: its timer has no callback under way
        m_pPlayer = nullptr;
        m_state = State::kIdle;
        return Started::kFailed;
    }
    return Started::kYes;
}

int NuvMIDIFilePlayback::Stop(NuvMIDISeqSynth& synth) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != State::kStarting && m_state != State::kPlaying)
        return 1;
    // From starting, the play thread leaves the player unstarted.
    m_state = State::kStopping;
    fluid_player_stop(m_pPlayer);
    m_changed.notify_all();
    // Held through the settle, so that no next file starts before the reset below.
    usleep(kStopSettleMicroseconds);
    synth.ResetSynth();
    return 0;
}

void NuvMIDIFilePlayback::m_EndThread(std::unique_lock<std::mutex>& lock) {
    if (m_state == State::kIdle)
        return;
    m_state = State::kStopping;
    if (m_pPlayer != nullptr) // null once the play thread is deleting it
        fluid_player_stop(m_pPlayer);
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_state == State::kIdle; });
}

// Every event of the file has been played. FluidSynth 2 keeps its player playing after
// that until no voice sounds any more, which for a piano's or a string section's release
// is seconds after the sound has faded: the file's end is taken from the ticks instead,
// and the player runs on only to let the last notes ring out.
int NuvMIDIFilePlayback::m_OnTick(void* playback, int tick) {
    auto* self = static_cast<NuvMIDIFilePlayback*>(playback);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    if (!self->m_bTicked) {
        self->m_bTicked = true;
        self->m_changed.notify_all();
    }
    if (self->m_state == State::kPlaying && self->m_pPlayer != nullptr) {
        const int total = fluid_player_get_total_ticks(self->m_pPlayer);
        if (total > 0 && tick >= total) {
            self->m_state = State::kStopping; // a next start or a stop cuts the ringing notes
            self->m_changed.notify_all();
        }
    }
    return FLUID_OK;
}

void NuvMIDIFilePlayback::m_Play() {
    std::unique_lock<std::mutex> lock(m_mutex);
    fluid_player_t* player = m_pPlayer;
    print_dlog(NUV_LOG_TRACE, "\n[PlayFile] Enter %s\n", m_fileName);
    // A stop that came before this thread got here leaves the player unstarted.
    bool started = false;
    if (m_state == State::kStarting) {
        started = fluid_player_add(player, m_fileName) == FLUID_OK &&
                  fluid_player_play(player) == FLUID_OK;
        if (!started)
            print_dlog(NUV_LOG_INFO, "\n[PlayFile] %s could not be started\n", m_fileName);
        m_state = started ? State::kPlaying : State::kStopping;
    }
    lock.unlock();

    // Returns once the file and its last notes have ended, or the player was stopped;
    // joining a player that never started would wait for ever.
    if (started) {
        m_AwaitEnd(player);
        fluid_player_join(player);
    }
    usleep(kEndSettleMicroseconds);
    if (fluid_player_get_status(player) == FLUID_PLAYER_DONE)
        m_pSynth->ResetSynth();

    // Deleted without the mutex: deleting joins the player's timer, whose tick takes it. A
    // stopped player's timer would wake 250 times a second until the next file, so the
    // player goes with the thread that played it.
    lock.lock();
    m_pPlayer = nullptr;
    lock.unlock();
    delete_fluid_player(player);
    lock.lock();
    m_state = State::kIdle;
    m_changed.notify_all();
}

// FluidSynth's join looks at the player's status every 10 ms for the whole file. The play
// thread sleeps instead until the file's last tick or a stop, and leaves the join only the
// last notes' release. FluidSynth announces no end of its own: a player that cannot read
// its file ends without a single tick, within its first timer periods, so the status is
// looked at every 10 ms until the first tick and then once a second, in case a player
// ends in a way that no tick shows.
void NuvMIDIFilePlayback::m_AwaitEnd(fluid_player_t* player) {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_state == State::kPlaying && fluid_player_get_status(player) != FLUID_PLAYER_DONE) {
        if (m_bTicked)
            m_changed.wait_for(lock, kTickedCheck);
        else
            m_changed.wait_for(lock, kUntickedCheck);
    }
}

void* PlayFile(void* arg) {
    pthread_setname_np(pthread_self(), kPlayThreadName);
    static_cast<NuvMIDIFilePlayback*>(arg)->m_Play();
    return nullptr;
}
