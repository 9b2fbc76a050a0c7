#include "FanOut.h"

#include <time.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>

#include "VirtualKeyboard.h"
#include "WaitFor.h"

namespace {

// The calls of a group of callbacks that each receive every event once: keeps when each
// event's last call came. The clock is read once per event, not once per call: in the
// emulated machine a clock read is a system call and a timer read, about as costly as a
// hundred callback calls, and it runs on the watcher's thread.
class Calls {
public:
    Calls(size_t events, size_t perEvent) : m_perEvent(perEvent), m_at(events) {}
    void Called() {
        const size_t n = m_count.fetch_add(1) + 1;
        if (n % m_perEvent == 0 && n / m_perEvent <= m_at.size()) {
            m_at[n / m_perEvent - 1] = BenchClock::now();
            m_events.store(n / m_perEvent);
        }
    }
    size_t Count() const { return m_count.load(); }
    // Events whose every call has come and whose time is kept.
    size_t Events() const { return m_events.load(); }
    BenchClock::time_point At(size_t event) const { return m_at[event]; }

private:
    const size_t m_perEvent;
    std::atomic<size_t> m_count{0};
    std::atomic<size_t> m_events{0};
    std::vector<BenchClock::time_point> m_at;
};

// One host callback of a group.
class Counter : public NuvCallback {
public:
    explicit Counter(Calls& calls) : m_calls(calls) {}
    int t_OnCallback(int, void*, void*, void*) override {
        m_calls.Called();
        return 0;
    }

private:
    Calls& m_calls;
};

double WatcherCpuSeconds() {
    double total = 0;
    for (const auto& thread : ThreadCpuSeconds(getpid()))
        if (thread.first.rfind("NuvWatcher ", 0) == 0)
            total += thread.second.cpuSeconds;
    return total;
}

// Sends a note-on from `client`; counts and retries refusals as a sending application
// would. False on any other error.
bool Send(snd_seq_t* seq, int note, FanOutResult& result) {
    snd_seq_event_t ev;
    snd_seq_ev_clear(&ev);
    snd_seq_ev_set_source(&ev, 0);
    snd_seq_ev_set_subs(&ev);
    snd_seq_ev_set_direct(&ev);
    snd_seq_ev_set_noteon(&ev, 0, 36 + note % 60, 1 + note % 127);
    for (;;) {
        const int err = snd_seq_event_output_direct(seq, &ev);
        if (err >= 0)
            return true;
        if (err != -EAGAIN)
            return false;
        ++result.refusals;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// Waits until `done` holds or nothing has arrived for a second.
template <typename Done, typename Progress> void AwaitDelivery(Done done, Progress progress) {
    size_t seen = progress();
    while (!done()) {
        if (!WaitFor([&] { return done() || progress() != seen; }, std::chrono::seconds(1)))
            return;
        seen = progress();
    }
}

void Finish(FanOutResult& result, BenchClock::time_point start, BenchClock::time_point last,
            double cpuBefore) {
    const double seconds = std::chrono::duration<double>(last - start).count();
    result.eventsPerSecond = seconds > 0 ? double(result.sent) / seconds : 0;
    result.watcherUsPerEvent =
        result.sent > 0 ? (WatcherCpuSeconds() - cpuBefore) * 1e6 / double(result.sent) : 0;
}

} // namespace

FanOutResult RunSenders(Host& host, int senders, int events) {
    FanOutResult result;
    std::vector<std::unique_ptr<UserSpaceClient>> clients;
    std::vector<INuvMIDIDevice*> devices;
    Calls calls{size_t(events), 1};
    Counter counter(calls);
    for (int i = 0; i < senders; ++i) {
        const std::string name = UniqueName("Fan Sender");
        clients.emplace_back(new UserSpaceClient(name));
        INuvMIDIDevice* device = clients.back()->IsOpen() ? host.Take(name) : nullptr;
        if (device == nullptr)
            break;
        device->RegisterCallback(&counter);
        devices.push_back(device);
    }
    if (int(devices.size()) == senders) {
        const double cpuBefore = WatcherCpuSeconds();
        const BenchClock::time_point start = BenchClock::now();
        std::thread sender([&] {
            PinToSecondCpu();
            for (int i = 0; i < events; ++i, ++result.sent)
                if (!Send(clients[size_t(i % senders)]->Handle(), i, result))
                    break;
        });
        sender.join();
        AwaitDelivery([&] { return calls.Count() >= size_t(result.sent); },
                      [&] { return calls.Count(); });
        result.deliveries = long(calls.Count());
        result.expected = result.sent;
        Finish(result, start, calls.Events() > 0 ? calls.At(calls.Events() - 1) : start, cpuBefore);
    }
    for (INuvMIDIDevice* device : devices) {
        device->UnregisterCallback(&counter);
        host.Manager()->DestroyDevice(device->GetID());
    }
    return result;
}

FanOutResult RunCallbacks(Host& host, int callbacks, int events, int perSecond) {
    FanOutResult result;
    const std::string name = UniqueName("Fan Device");
    UserSpaceClient client(name);
    INuvMIDIDevice* device = client.IsOpen() ? host.Take(name) : nullptr;
    if (device == nullptr)
        return result;
    Calls calls{size_t(events), size_t(callbacks)};
    std::vector<std::unique_ptr<Counter>> counters;
    for (int i = 0; i < callbacks; ++i) {
        counters.emplace_back(new Counter(calls));
        device->RegisterCallback(counters.back().get());
    }
    std::vector<BenchClock::time_point> sentAt(static_cast<size_t>(events));
    const double cpuBefore = WatcherCpuSeconds();
    const BenchClock::time_point start = BenchClock::now();
    std::thread sender([&] {
        PinToSecondCpu();
        timespec next;
        clock_gettime(CLOCK_MONOTONIC, &next);
        const long stepNs = 1000000000L / perSecond;
        for (int i = 0; i < events; ++i, ++result.sent) {
            next.tv_nsec += stepNs;
            if (next.tv_nsec >= 1000000000L) {
                next.tv_nsec -= 1000000000L;
                ++next.tv_sec;
            }
            while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
            }
            sentAt[size_t(i)] = BenchClock::now();
            if (!Send(client.Handle(), i, result))
                break;
        }
    });
    sender.join();
    result.expected = result.sent * long(callbacks);
    AwaitDelivery([&] { return calls.Count() >= size_t(result.expected); },
                  [&] { return calls.Count(); });
    result.deliveries = long(calls.Count());
    // Each event's latency is that of its last callback: the one a host would wait for.
    BenchClock::time_point last = start;
    for (size_t i = 0; i < size_t(result.sent); ++i) {
        if (i >= calls.Events()) {
            ++result.latency.missed;
            continue;
        }
        result.latency.ms.push_back(
            std::chrono::duration<double, std::milli>(calls.At(i) - sentAt[i]).count());
        last = std::max(last, calls.At(i));
    }
    Finish(result, start, last, cpuBefore);
    for (const auto& counter : counters)
        device->UnregisterCallback(counter.get());
    host.Manager()->DestroyDevice(device->GetID());
    return result;
}
