// One run's library: created once, with the sink and log level chosen first, waited on
// until it has discovered the sequencer's devices, and destroyed at the end. It resolves
// device names, creates the device objects the commands use, and keeps the arrivals and
// departures that the library announces.
#ifndef NUVMIDI_CLI_SESSION_H
#define NUVMIDI_CLI_SESSION_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DeviceMatch.h"
#include "NuvMIDI.h"
#include "Waiter.h"

namespace nuvcli {

class Library;

// A device that arrived or left, and when the library said so.
struct DeviceNews {
    bool arrived = false;
    DeviceEntry device;
    Waiter::Clock::time_point at;
};

// Prints the news as one line, its time in seconds since `start`.
void PrintNews(const DeviceNews& news, Waiter::Clock::time_point start);

class Session : private NuvCallback {
public:
    Session(Library& library, Waiter& waiter) : m_library(library), m_waiter(waiter) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Chooses the sink and log level, creates the library, waits until it lists its
    // synthesizer and the devices found with it, and loads --font. 0 or an exit code, its
    // message printed.
    int Open(const GlobalOptions& options);
    // Destroys the library. The listeners handed over with Keep die after it.
    void Close();

    INuvMIDIDeviceManager& Manager() { return *m_manager; }
    Waiter& GetWaiter() { return m_waiter; }

    // The connected devices, in the library's order, with the ids of those created.
    std::vector<DeviceEntry> Devices();
    // The device that `query` names: 0, or EXIT_UNKNOWN_DEVICE with its message printed.
    int Find(const std::string& query, DeviceEntry& device);
    // The device object, created on first use (its id then set in `device`). Null with
    // the message printed when the library cannot create it.
    INuvMIDIDevice* Take(DeviceEntry& device);
    // The synthesizer's device object, or null with the message printed.
    INuvMIDIDevice* TakeSynth();
    // Loads a SoundFont file (or "Default") into the synthesizer: 0 and its font id, or an
    // exit code with the message printed.
    int LoadFont(const std::string& path, int& fontId);
    // Starts the library's sound output (its first GetDevice), so that what reaches the
    // synthesizer is heard or recorded.
    void StartSound(INuvMIDIDevice* device);

    // Arrivals and departures announced since the last call, oldest first.
    std::vector<DeviceNews> TakeNews();

    // Keeps a callback alive until the library is gone: devices may call what was
    // registered on them until NuvMIDI_Destroy has returned.
    void Keep(std::unique_ptr<NuvCallback> callback);

private:
    int t_OnCallback(int event, void* arg1, void* arg2, void* arg3) override;
    int m_ChooseOutput(const GlobalOptions& options);
    int m_WaitForDiscovery();

    Library& m_library;
    Waiter& m_waiter;
    INuvMIDIDeviceManager* m_manager = nullptr;
    bool m_created = false;
    bool m_soundStarted = false;

    std::mutex m_mutex; // guards the fields below, written by the library's thread too
    struct Taken {
        INuvMIDIDevice* device;
        int id;
    };
    std::map<int, Taken> m_taken; // by client number; a device leaves it when it goes
    std::vector<DeviceNews> m_news;
    unsigned long m_announcements = 0;

    std::vector<std::unique_ptr<NuvCallback>> m_kept;
};

} // namespace nuvcli

#endif
