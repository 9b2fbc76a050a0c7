// MIDI-file playback: one file at a time, played by a FluidSynth player on the
// destination's synthesizer and watched by a detached play thread.
#include <string.h>
#include <unistd.h>

#include <chrono>

#include "NuvLog"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDISynthActivity.h"

namespace {

constexpr int kIdle = 1;
constexpr int kPlaying = 2;
constexpr useconds_t kPollMicroseconds = 10000;
constexpr useconds_t kStopSettleMicroseconds = 21000;

// The player's own pacing and reset behaviour as the synthesizer's first users knew it.
void SetPlayerDefaults(fluid_synth_t* synth) {
    fluid_settings_t* settings = fluid_synth_get_settings(synth);
    // Paced by the system clock, as FluidSynth 1.x did, not by the rendering of samples.
    fluid_settings_setstr(settings, "player.timing-source", "system");
    // 1.x left the synthesizer alone when a file starts; the play thread resets it at the end.
    fluid_settings_setint(settings, "player.reset-synth", 0);
}

// Every event of the file has been played. FluidSynth 2 keeps its player playing after
// that until no voice sounds any more, which for a piano's or a string section's release
// is seconds after the sound has faded: the file's end is taken from the ticks instead,
// and the player runs on only to let the last notes ring out.
bool AllEventsPlayed(fluid_player_t* player) {
    const int total = fluid_player_get_total_ticks(player);
    return total > 0 && fluid_player_get_current_tick(player) >= total;
}

} // namespace

void* PlayFile(void* arg) {
    auto* info = static_cast<_PlayFileInfo*>(arg);
    fluid_player_t* player = info->player;
    // The starter has marked the status playing already, so that a stop made before this
    // thread runs is not undone here.
    print_dlog(NUV_LOG_TRACE, "\n[PlayFile] Enter %s\n", info->fileName);

    bool started = false;
    {
        std::lock_guard<std::mutex> lock(info->lock);
        // A stop that came before this thread got here leaves the player unstarted.
        if (!info->stopRequested) {
            started = fluid_player_add(player, info->fileName) == FLUID_OK &&
                      fluid_player_play(player) == FLUID_OK;
            if (!started)
                print_dlog(NUV_LOG_INFO, "\n[PlayFile] %s could not be started\n", info->fileName);
        }
    }
    if (started) {
        std::unique_lock<std::mutex> lock(info->lock);
        for (;;) {
            const int status = fluid_player_get_status(player);
            if (status != FLUID_PLAYER_PLAYING && status != FLUID_PLAYER_READY)
                break;
            if (info->status == kPlaying && AllEventsPlayed(player))
                info->status = kIdle; // a next start or a stop cuts the ringing notes
            // A poll period, cut short by a stop.
            info->ended.wait_for(lock, std::chrono::microseconds(kPollMicroseconds));
        }
    }
    info->status = kIdle;

    // Joining a player that never started would wait for ever.
    if (started)
        fluid_player_join(player);
    usleep(kPollMicroseconds);
    if (fluid_player_get_status(player) == FLUID_PLAYER_DONE)
        fluid_synth_system_reset(info->synth);

    // The last use of `info`: from here the manager may replace the name or free itself.
    std::lock_guard<std::mutex> lock(info->lock);
    // A stopped player's timer thread would wake 250 times a second until the next file:
    // the player goes with the thread that played it.
    delete_fluid_player(player);
    info->player = nullptr;
    info->threadRunning = false;
    info->ended.notify_all();
    return nullptr;
}

int NuvMIDIDeviceManager::m_StartFile(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) {
    DeviceEnd destination{};
    if (!m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StartStream] Can't find Device(%d) \n",
                   dst->id);
        return 0;
    }
    const _MIDIClientInfo& d = destination.client;

    // The name is checked in a copy: the block's name may be in use by a play thread.
    char fileName[sizeof m_playFile.fileName] = {};
    memcpy(fileName, src->name, strnlen(src->name, sizeof fileName - 1));
    if (!fluid_is_midifile(fileName)) {
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIDeviceManager::StartStream] [%s] is not valid midi file\n", fileName);
        return 0;
    }

    std::lock_guard<std::mutex> fileLock(m_fileMutex);
    if (m_playFile.status != kIdle)
        return 1; // a file is playing; this one is not queued
    std::unique_lock<std::mutex> lock(m_playFile.lock);
    // The last file's notes may still be ringing, or a stopped play thread finishing.
    if (m_playFile.threadRunning) {
        m_playFile.stopRequested = true;
        fluid_player_stop(m_playFile.player);
        m_playFile.ended.notify_all();
    }
    m_playFile.ended.wait(lock, [this] { return !m_playFile.threadRunning; });
    if (m_playFile.player != nullptr) {
        delete_fluid_player(m_playFile.player);
        m_playFile.player = nullptr;
    }
    memcpy(m_playFile.fileName, fileName, sizeof fileName);
    m_playFile.synth = d.synth;
    SetPlayerDefaults(d.synth);
    m_playFile.player = new_fluid_player(d.synth);
    if (m_playFile.player == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIDeviceManager::StartStream] Player creation failed\n");
        return 0;
    }
    // The file's notes wake a resting renderer as the MIDI driver's do.
    if (destination.activity != nullptr)
        fluid_player_set_playback_callback(m_playFile.player, NuvMIDISynthActivity::HandleEvent,
                                           destination.activity);
    // Playing from now on, so that a second start cannot slip in before the thread runs.
    m_playFile.status = kPlaying;
    m_playFile.stopRequested = false;
    m_playFile.threadRunning = true;
    if (pthread_create(&m_playThread, &m_threadAttr, PlayFile, &m_playFile) != 0) {
        m_playFile.threadRunning = false;
        m_playFile.status = kIdle;
        return 0;
    }
    lock.unlock();
    m_CreateRenderer(destination);
    return 1;
}

int NuvMIDIDeviceManager::m_StopFile(_MIDIDeviceInfo* dst) {
    print_dlog(NUV_LOG_TRACE, "%s\n",
               "\n[NuvMIDIDeviceManager::StopStream] File play stop called \n");
    std::lock_guard<std::mutex> fileLock(m_fileMutex);
    if (m_playFile.status != kPlaying)
        return 1;
    DeviceEnd destination{};
    if (!m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StopStream] Can't find Device(%d) \n",
                   dst->id);
        return NUV_ERR_GENERAL;
    }
    {
        std::lock_guard<std::mutex> lock(m_playFile.lock);
        m_playFile.stopRequested = true;
        if (m_playFile.player != nullptr) // null once the play thread has finished with it
            fluid_player_stop(m_playFile.player);
        m_playFile.ended.notify_all();
    }
    // Lets the player's timer finish its last callback before the notes are cut.
    usleep(kStopSettleMicroseconds);
    fluid_synth_system_reset(destination.client.synth);
    m_playFile.status = kIdle;
    return 0;
}

void NuvMIDIDeviceManager::m_EndFilePlayback() {
    std::lock_guard<std::mutex> fileLock(m_fileMutex);
    std::unique_lock<std::mutex> lock(m_playFile.lock);
    if (m_playFile.threadRunning) {
        m_playFile.stopRequested = true;
        fluid_player_stop(m_playFile.player);
        m_playFile.ended.notify_all();
        m_playFile.ended.wait(lock, [this] { return !m_playFile.threadRunning; });
    }
    if (m_playFile.player != nullptr) {
        delete_fluid_player(m_playFile.player);
        m_playFile.player = nullptr;
    }
    m_playFile.status = kIdle;
}
