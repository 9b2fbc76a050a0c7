#include "Session.h"

#include <alsa/asoundlib.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "ExitCodes.h"
#include "Library.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Waiter.h"

namespace nuvcli {
namespace {

using Clock = Waiter::Clock;

// Creating the synthesizer and loading its font takes seconds on a slow machine.
const auto kDiscoveryLimit = std::chrono::seconds(20);
// The library lists the devices that were there before it in the same pass as its
// synthesizer, just after it: a stretch of several passes (30 ms each) without a new
// arrival tells that the listing is complete.
const auto kQuietAfterSynth = std::chrono::milliseconds(200);
// Arrivals wake the wait; looking again now and then also covers those announced before
// the callback was registered.
const auto kRecheck = std::chrono::milliseconds(250);

// Without -v only nuvmidi's own lines are printed (they say when -v shows why), unless
// NUV_LOG_LEVEL asks the library for its lines.
const int kLogQuiet = 0;
const int kLogTrace = 4;

void QuietAlsa(const char*, int, const char*, int, const char*, ...) {}

// The library opens its PCM only when something first sounds, and tells a failure only in
// its log: the name is tried here first, so that a wrong one fails the run. Empty when the
// PCM opens.
std::string PcmProblem(const std::string& name, bool verbose) {
    if (!verbose)
        snd_lib_error_set_handler(&QuietAlsa);
    snd_pcm_t* pcm = nullptr;
    const int err = snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    snd_lib_error_set_handler(nullptr);
    if (err < 0)
        return snd_strerror(err);
    snd_pcm_close(pcm);
    return std::string();
}

DeviceEntry EntryOf(const _NuvDevInfo& info) {
    DeviceEntry entry;
    entry.client = atoi(info.UID);
    entry.name.assign(info.deviceName, strnlen(info.deviceName, sizeof(info.deviceName)));
    entry.isSynth = info.isSynth != 0;
    return entry;
}

bool HasSynth(const std::vector<DeviceEntry>& devices) {
    return std::any_of(devices.begin(), devices.end(),
                       [](const DeviceEntry& device) { return device.isSynth; });
}

} // namespace

Session::~Session() {
    Close();
}

int Session::Open(const GlobalOptions& options) {
    if (options.verbose)
        m_library.SetLogThreshold(kLogTrace);
    else if (getenv("NUV_LOG_LEVEL") == nullptr)
        m_library.SetLogThreshold(kLogQuiet);
    if (int code = m_ChooseOutput(options))
        return code;
    if (!m_library.Create()) {
        if (access("/dev/snd/seq", F_OK) != 0)
            return Fail(EXIT_NO_SEQUENCER,
                        "cannot start the MIDI library: this system has no ALSA sequencer "
                        "(/dev/snd/seq)");
        return Fail(EXIT_NO_SEQUENCER, "cannot start the MIDI library (-v shows why)");
    }
    m_created = true;
    m_manager = m_library.GetDeviceManager();
    if (m_manager == nullptr)
        return Fail(EXIT_NO_SEQUENCER, "the MIDI library started without a device manager");
    m_manager->RegisterCallback(this); // without it, the rechecks below still find the devices
    if (int code = m_WaitForDiscovery())
        return code;
    int fontId = 0;
    if (!options.font.empty() && !m_waiter.Interrupted())
        return LoadFont(options.font, fontId);
    return EXIT_OK;
}

int Session::m_ChooseOutput(const GlobalOptions& options) {
    if (!options.wavFile.empty() && !m_library.SetWavFile(options.wavFile))
        return Fail(EXIT_FAILED, "this MIDI library's audio output cannot record to '%s'",
                    options.wavFile.c_str());
    if (options.audioDevice.empty())
        return EXIT_OK;
    const std::string problem = PcmProblem(options.audioDevice, options.verbose);
    if (!problem.empty())
        return Fail(EXIT_FAILED, "cannot open the ALSA PCM '%s': %s", options.audioDevice.c_str(),
                    problem.c_str());
    if (!m_library.SetAudioDevice(options.audioDevice))
        return Fail(EXIT_FAILED, "this MIDI library's audio output cannot use the PCM '%s'",
                    options.audioDevice.c_str());
    return EXIT_OK;
}

int Session::m_WaitForDiscovery() {
    const auto limit = Clock::now() + kDiscoveryLimit;
    while (!HasSynth(Devices())) {
        const Waiter::Result result = m_waiter.WaitUntil(std::min(limit, Clock::now() + kRecheck));
        if (result == Waiter::SIGNALLED)
            return EXIT_OK; // the caller sees the interruption and ends the run
        if (Clock::now() >= limit)
            return Fail(EXIT_NO_SEQUENCER,
                        "the MIDI library found no synthesizer within %lld s (-v shows why)",
                        static_cast<long long>(kDiscoveryLimit.count()));
    }
    unsigned long seen = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        seen = m_announcements;
    }
    auto quietUntil = Clock::now() + kQuietAfterSynth;
    for (;;) {
        const Waiter::Result result = m_waiter.WaitUntil(quietUntil);
        if (result == Waiter::SIGNALLED)
            return EXIT_OK;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_announcements != seen && Clock::now() < limit) {
            seen = m_announcements;
            quietUntil = Clock::now() + kQuietAfterSynth;
        } else if (result == Waiter::TIMED_OUT || Clock::now() >= limit) {
            return EXIT_OK;
        }
    }
}

void Session::Close() {
    if (m_created) {
        m_library.Destroy();
        m_created = false;
    }
    m_manager = nullptr;
    m_kept.clear();
}

std::vector<DeviceEntry> Session::Devices() {
    std::vector<DeviceEntry> devices;
    // The index bound only guards against a library that never says "no more".
    for (int index = 0; index < 4096; ++index) {
        _NuvDevInfo info{};
        bool created = false;
        if (m_manager->GetConnectedDeviceInfo(info, created, index) != 0)
            break;
        DeviceEntry entry = EntryOf(info);
        if (created) {
            std::lock_guard<std::mutex> lock(m_mutex);
            const auto taken = m_taken.find(entry.client);
            if (taken != m_taken.end())
                entry.id = taken->second.id;
        }
        devices.push_back(entry);
    }
    return devices;
}

int Session::Find(const std::string& query, DeviceEntry& device) {
    const std::vector<DeviceEntry> devices = Devices();
    const DeviceMatch match = MatchDevice(devices, query);
    if (match.status != DeviceMatch::FOUND)
        return Fail(EXIT_UNKNOWN_DEVICE, "%s", DescribeFailedMatch(devices, query, match).c_str());
    device = devices[match.index];
    return EXIT_OK;
}

INuvMIDIDevice* Session::Take(DeviceEntry& device) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto taken = m_taken.find(device.client);
        if (taken != m_taken.end()) {
            device.id = taken->second.id;
            return taken->second.device;
        }
    }
    INuvMIDIDevice* created = m_manager->CreateDevice(device.name.c_str());
    if (created == nullptr) {
        Fail(EXIT_FAILED, "the library cannot create the device '%s'", device.name.c_str());
        return nullptr;
    }
    // A name reaches the first client of that name (two keyboards of one product share
    // it); any other is reached by its UID, its client number.
    _NuvDevInfo info{};
    created->GetDevInfo(info);
    if (atoi(info.UID) != device.client) {
        created = m_manager->CreateDevice(std::to_string(device.client).c_str());
        if (created == nullptr) {
            Fail(EXIT_FAILED, "the library cannot create the device '%s' (%d)", device.name.c_str(),
                 device.client);
            return nullptr;
        }
    }
    device.id = created->GetID();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_taken[device.client] = Taken{created, device.id};
    return created;
}

INuvMIDIDevice* Session::TakeSynth() {
    for (DeviceEntry& device : Devices())
        if (device.isSynth)
            return Take(device);
    Fail(EXIT_NO_SEQUENCER, "the MIDI library lists no synthesizer");
    return nullptr;
}

int Session::LoadFont(const std::string& path, int& fontId) {
    INuvMIDIDevice* synth = TakeSynth();
    if (synth == nullptr)
        return EXIT_NO_SEQUENCER;
    fontId = synth->LoadSoundFontFile(path);
    if (fontId < 0)
        return Fail(EXIT_BAD_FILE, "the synthesizer cannot load '%s' as a sound font",
                    path.c_str());
    return EXIT_OK;
}

void Session::StartSound(INuvMIDIDevice* device) {
    if (m_soundStarted || device == nullptr)
        return;
    m_manager->GetDevice(device->GetID());
    m_soundStarted = true;
}

std::vector<DeviceNews> Session::TakeNews() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<DeviceNews> news;
    news.swap(m_news);
    return news;
}

void PrintNews(const DeviceNews& news, Waiter::Clock::time_point start) {
    const double seconds = std::chrono::duration<double>(news.at - start).count();
    Print(FormatDeviceNewsLine(seconds, news.device.name, news.arrived, news.device.client));
}

void Session::Keep(std::unique_ptr<NuvCallback> callback) {
    m_kept.push_back(std::move(callback));
}

// The device manager's announcements, on the library's thread.
int Session::t_OnCallback(int event, void* arg1, void* arg2, void*) {
    if ((event != NUV_EVENT_DEVICE_ATTACHED && event != NUV_EVENT_DEVICE_DETACHED) ||
        arg1 == nullptr)
        return 0;
    DeviceNews news;
    news.at = Waiter::Clock::now();
    news.arrived = event == NUV_EVENT_DEVICE_ATTACHED;
    news.device = EntryOf(*static_cast<const _NuvDevInfo*>(arg1));
    if (arg2 != nullptr)
        news.device.id = *static_cast<const int*>(arg2);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!news.arrived)
            m_taken.erase(news.device.client); // the library deletes it once we return
        m_news.push_back(news);
        ++m_announcements;
    }
    m_waiter.Wake();
    return 0;
}

} // namespace nuvcli
