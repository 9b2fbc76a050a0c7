#include "FanOut.h"

#include <time.h>

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <thread>

#include "VirtualKeyboard.h"
#include "WaitFor.h"

namespace {

// Counts its calls and keeps when each event arrived.
class Counter : public NuvCallback {
public:
    explicit Counter(size_t events) : m_at(events) {}
    int t_OnCallback(int, void*, void*, void*) override {
        const size_t n = m_count.fetch_add(1);
        if (n < m_at.size())
            m_at[n] = BenchClock::now();
        return 0;
    }
    size_t Count() const { return m_count.load(); }
    BenchClock::time_point At(size_t n) const { return m_at[n]; }

private:
    std::atomic<size_t> m_count{0};
    std::vector<BenchClock::time_point> m_at;
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
    Counter counter{size_t(events)};
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
        AwaitDelivery([&] { return counter.Count() >= size_t(result.sent); },
                      [&] { return counter.Count(); });
        result.deliveries = long(counter.Count());
        result.expected = result.sent;
        Finish(result, start,
               result.deliveries > 0 ? counter.At(size_t(result.deliveries) - 1) : start,
               cpuBefore);
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
    std::vector<std::unique_ptr<Counter>> counters;
    for (int i = 0; i < callbacks; ++i) {
        counters.emplace_back(new Counter(size_t(events)));
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
    auto total = [&] {
        size_t sum = 0;
        for (const auto& counter : counters)
            sum += counter->Count();
        return sum;
    };
    result.expected = result.sent * long(callbacks);
    AwaitDelivery([&] { return total() >= size_t(result.expected); }, total);
    result.deliveries = long(total());
    // Each event's latency is that of its last callback: the one a host would wait for.
    BenchClock::time_point last = start;
    for (size_t i = 0; i < size_t(result.sent); ++i) {
        BenchClock::time_point latest = sentAt[i];
        bool all = true;
        for (const auto& counter : counters) {
            if (counter->Count() <= i) {
                all = false;
                break;
            }
            latest = std::max(latest, counter->At(i));
        }
        if (!all) {
            ++result.latency.missed;
            continue;
        }
        result.latency.ms.push_back(
            std::chrono::duration<double, std::milli>(latest - sentAt[i]).count());
        last = std::max(last, latest);
    }
    Finish(result, start, last, cpuBefore);
    for (const auto& counter : counters)
        device->UnregisterCallback(counter.get());
    host.Manager()->DestroyDevice(device->GetID());
    return result;
}
