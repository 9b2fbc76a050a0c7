#include "Load.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <thread>

#include "MidiFileWriter.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"

BurstResult RunBurst(Host& host, int events) {
    BurstResult result;
    const std::string name = UniqueName("Burst Keyboard");
    UserSpaceClient sender(name);
    INuvMIDIDevice* device = sender.IsOpen() ? host.Take(name) : nullptr;
    if (device == nullptr)
        return result;
    ArrivalStamps arrivals;
    device->RegisterCallback(&arrivals);

    const BenchClock::time_point start = BenchClock::now();
    std::thread sending([&] {
        PinToSecondCpu();
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        snd_seq_ev_set_source(&ev, 0);
        snd_seq_ev_set_subs(&ev);
        snd_seq_ev_set_direct(&ev);
        // The sequencer refuses an event (EAGAIN) while the watcher's input pool is full: the
        // sender then waits a moment and offers it again, as a sending application would.
        auto refused = [&](int err) {
            if (err != -EAGAIN)
                return false;
            ++result.refusals;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            return true;
        };
        for (int i = 0; i < events; ++i) {
            snd_seq_ev_set_noteon(&ev, 0, 36 + i % 60, 1 + i % 127);
            int err;
            while (refused(err = snd_seq_event_output(sender.Handle(), &ev))) {
            }
            if (err < 0)
                break;
            ++result.sent;
        }
        for (int err = 1; err > 0 || refused(err);)
            err = snd_seq_drain_output(sender.Handle());
    });
    sending.join();
    // Done when every event has arrived or none has for a second.
    size_t seen = 0;
    while (arrivals.Count() < size_t(result.sent)) {
        BenchClock::time_point at;
        if (!arrivals.WaitFor(seen, at, std::chrono::seconds(1)))
            break;
        seen = arrivals.Count();
    }
    result.delivered = long(arrivals.Count());
    BenchClock::time_point last = start;
    if (result.delivered > 0)
        arrivals.WaitFor(size_t(result.delivered - 1), last, std::chrono::milliseconds(0));
    result.seconds = std::chrono::duration<double>(last - start).count();
    device->UnregisterCallback(&arrivals);
    host.Manager()->DestroyDevice(device->GetID());
    return result;
}

CpuReading CpuBetween(const std::map<std::string, ThreadUse>& before,
                      const std::map<std::string, ThreadUse>& after, double seconds,
                      const ThreadFilter& counted) {
    CpuReading reading;
    for (const auto& [name, use] : after) {
        if (!counted(name))
            continue;
        const auto earlier = before.find(name);
        const ThreadUse was = earlier != before.end() ? earlier->second : ThreadUse{};
        const double percent = 100.0 * (use.cpuSeconds - was.cpuSeconds) / seconds;
        const double wakeups = double(use.runs - was.runs) / seconds;
        reading.percent += percent;
        reading.wakeupsPerSecond += wakeups;
        if (percent >= 0.05 || wakeups >= 1)
            reading.byThread += (reading.byThread.empty() ? "" : ", ") + name + " " +
                                Fixed(percent, 2) + "% " + Fixed(wakeups, 0) + "/s";
    }
    return reading;
}

CpuReading MeasureCpu(pid_t pid, double seconds, const ThreadFilter& counted) {
    const std::map<std::string, ThreadUse> before = ThreadCpuSeconds(pid);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return CpuBetween(before, ThreadCpuSeconds(pid), seconds, counted);
}

std::string WriteSong(double seconds) {
    MidiFileWriter song(1);
    song.AddProgramChange(0, 20, 0);
    const int melody[8] = {60, 62, 64, 65, 67, 65, 64, 62};
    int i = 0;
    for (double t = 0; t + 0.25 <= seconds; t += 0.25, ++i) {
        song.AddNote(0, melody[i % 8], 90, t, 0.25);
        if (i % 8 == 0)
            song.AddNote(0, 48, 80, t, std::min(2.0, seconds - t));
    }
    song.SetLength(seconds);
    const std::string path = "/tmp/nuv_bench_song.mid";
    song.Write(path);
    return path;
}

CpuReading CpuWhilePlaying(Host& host, INuvMIDIDevice* synthesizer, const std::string& path,
                           double seconds, const ThreadFilter& counted) {
    _MIDIDeviceInfo src{}, dst{};
    snprintf(src.name, sizeof src.name, "%s", path.c_str());
    src.type = MIDI_DEVICE_TYPE_FILE;
    dst.id = synthesizer->GetID();
    dst.type = MIDI_DEVICE_TYPE_DESTINATION;
    if (host.Manager()->StartStream(&src, &dst) != 1)
        return {std::nan(""), std::nan(""), ""};
    const CpuReading reading = MeasureCpu(getpid(), seconds, counted);
    WaitFor([&] { return host.Manager()->GetFilePlayStatus() == 1; }, std::chrono::seconds(20));
    return reading;
}

bool RunArrivals(Host& host, int count) {
    // The sequencer holds 64 user-space clients at most, this program's and the
    // library's included: the arrivals come in rounds.
    const int kRound = 40;
    long attached = 0, detached = 0;
    host.DeviceCounts(attached, detached);
    for (int done = 0; done < count; done += kRound) {
        std::vector<std::unique_ptr<UserSpaceClient>> clients;
        for (int i = 0; i < std::min(kRound, count - done); ++i)
            clients.emplace_back(new UserSpaceClient("Arriving Keyboard " + std::to_string(i)));
        attached += long(clients.size());
        if (!host.WaitForDevices(attached, detached, std::chrono::seconds(10)))
            return false;
        detached += long(clients.size());
        clients.clear();
        if (!host.WaitForDevices(attached, detached, std::chrono::seconds(10)))
            return false;
    }
    return true;
}
