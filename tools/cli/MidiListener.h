// Receives the MIDI that devices send, on the library's thread: prints each event and,
// for thru, sends it on to the synthesizer.
#ifndef NUVMIDI_CLI_MIDI_LISTENER_H
#define NUVMIDI_CLI_MIDI_LISTENER_H

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "DeviceMatch.h"
#include "NuvMIDI.h"
#include "Waiter.h"

namespace nuvcli {

class Session;

class MidiListener : public NuvCallback {
public:
    // `eventLimit` 0: no limit. `forward`: send every event on through the device it came
    // from (the library sends whatever a device sends to the synthesizer).
    MidiListener(Waiter& waiter, long eventLimit, bool forward);

    // Listens to one more device (not twice to one: the library would then deliver every
    // event twice). 0, or an exit code with the message printed.
    int Listen(Session& session, DeviceEntry& device);
    // Waits, announcing arrivals and departures, until a signal or the event limit (0), or
    // until every device listened to has gone (EXIT_DEVICE_GONE, its message printed).
    // `names`: devices listened to again when they come back; `everyKeyboard`: listen to
    // every arriving device that is not a synthesizer, and never end for a departure.
    int Run(Session& session, const std::vector<std::string>& names, bool everyKeyboard);

    double Elapsed() const;

    int t_OnCallback(int code, void* arg1, void* arg2, void* arg3) override;

private:
    struct Source {
        INuvMIDIDevice* device;
        std::string name;
    };

    Waiter& m_waiter;
    const long m_eventLimit;
    const bool m_forward;
    const Waiter::Clock::time_point m_start;
    std::atomic<bool> m_active{true}; // false once Run is over: later events are dropped
    std::atomic<long> m_events{0};

    std::mutex m_mutex;              // the sources are read on the library's thread
    std::map<int, Source> m_sources; // by device id
    std::set<int> m_clients;         // clients listened to
};

} // namespace nuvcli

#endif
