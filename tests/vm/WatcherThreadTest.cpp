// The watcher with its framework thread running: the fan-out while host threads register
// and unregister and a keyboard streams, destruction in the middle of that, and how long a
// key press takes from the keyboard to a callback.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <random>
#include <thread>

#include "LateCallRecorder.h"
#include "WatcherFixture.h"

namespace {

using Clock = std::chrono::steady_clock;

// Keeps the per-message lines off the console while a test streams many messages.
class QuietLog {
public:
    QuietLog() : m_previous(NuvLog_SetThreshold(NUV_LOG_CRITICAL)) {}
    ~QuietLog() { NuvLog_SetThreshold(m_previous); }

private:
    int m_previous;
};

class MIDIWatcherRunning : public ::testing::Test {
protected:
    void SetUp() override {
        if (SequencerView::Read().Clients().empty())
            GTEST_SKIP() << "no kernel sequencer";
        auto keyboards = VirtualKeyboard::FindAll();
        ASSERT_FALSE(keyboards.empty());
        keyboard.reset(new VirtualKeyboard(std::move(keyboards.front())));
        watcher.reset(new NuvMIDIWatcher());
        ASSERT_EQ(0, watcher->Create());
        ASSERT_EQ(0, snd_seq_connect_from(Access::Seq(*watcher), 1, keyboard->Client(),
                                          keyboard->Port()));
        ASSERT_EQ(0, watcher->Start());
    }
    void TearDown() override {
        if (watcher) {
            EXPECT_EQ(0, watcher->Destroy());
        }
    }

    QuietLog quiet;
    std::unique_ptr<VirtualKeyboard> keyboard;
    std::unique_ptr<NuvMIDIWatcher> watcher;
};

// A host's callback that must never be called after its unregistration has returned.
using HostCallback = LateCallRecorder;

// Unregisters itself from inside its call, as a host may do from its device callback.
struct SelfRemovingCallback : NuvMIDICallback {
    explicit SelfRemovingCallback(NuvMIDIWatcher& w) : watcher(w) {}
    int OnMIDIEvent(int, int, _MIDIMessage&) override {
        calls.fetch_add(1);
        watcher.UnregisterMIDICallback(this);
        return 0;
    }
    NuvMIDIWatcher& watcher;
    std::atomic<int> calls{0};
};

TEST_F(MIDIWatcherRunning, FanOutHoldsWhileHostsRegisterDuringAStream) {
    // The keyboard streams with at most a few notes in flight, as fast as they are taken.
    HostCallback delivered;
    delivered.unregistered.store(false);
    watcher->RegisterMIDICallback(&delivered);
    std::atomic<bool> streaming{true};
    std::thread stream([&] {
        for (int sent = 1; streaming.load(); ++sent) {
            keyboard->Write({0x90, static_cast<uint8_t>(sent % 128), 64});
            WaitFor([&] { return !streaming.load() || delivered.calls.load() > sent - 8; },
                    std::chrono::milliseconds(200));
        }
    });
    SelfRemovingCallback selfRemoving(*watcher);
    HostCallback hosts[2];
    std::vector<std::thread> threads;
    for (HostCallback& cb : hosts) {
        threads.emplace_back([&] {
            const auto deadline = Clock::now() + std::chrono::seconds(20);
            for (int i = 0; (i < 200 || cb.calls.load() < 100) && Clock::now() < deadline; ++i) {
                cb.unregistered.store(false);
                watcher->RegisterMIDICallback(&cb);
                // Every other time, stay registered until the stream has reached us.
                const int before = cb.calls.load();
                if (i % 2 == 0)
                    WaitFor([&] { return cb.calls.load() > before; },
                            std::chrono::milliseconds(200));
                watcher->UnregisterMIDICallback(&cb);
                cb.unregistered.store(true);
                if (i % 10 == 0)
                    watcher->RegisterMIDICallback(&selfRemoving);
            }
        });
    }
    for (auto& t : threads)
        t.join();
    // Destroy while the keyboard still streams: the pass in progress ends first.
    EXPECT_EQ(0, watcher->Destroy());
    watcher.reset();
    streaming.store(false);
    stream.join();

    for (HostCallback& cb : hosts) {
        EXPECT_EQ(0, cb.lateCalls.load());
        EXPECT_GE(cb.calls.load(), 100);
    }
    EXPECT_GT(selfRemoving.calls.load(), 0);
}

// How long a note takes from the keyboard's raw node to a callback on the watcher thread:
// the sequencer's input wakes the thread, so the period (30 ms) must not show.
TEST_F(MIDIWatcherRunning, LatencyFromKeyboardToCallback) {
    struct Timestamping : NuvMIDICallback {
        int OnMIDIEvent(int, int, _MIDIMessage& msg) override {
            std::lock_guard<std::mutex> lock(mutex);
            arrivals.push_back({msg.param, Clock::now()});
            arrived.notify_one();
            return 0;
        }
        std::mutex mutex;
        std::condition_variable arrived;
        std::vector<std::pair<int, Clock::time_point>> arrivals;
    } callback;
    watcher->RegisterMIDICallback(&callback);

    const int kNotes = 200;
    std::vector<double> latencies;
    // A key press comes at any moment of the watcher's period, not right after a pass has
    // delivered the previous one: each note waits a random part of a period first.
    std::mt19937 random(12345);
    std::uniform_int_distribution<int> phaseUs(0, 30000);
    for (int i = 0; i < kNotes; ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(phaseUs(random)));
        const int note = i % 128;
        const auto sent = Clock::now();
        ASSERT_TRUE(keyboard->Write({0x90, static_cast<uint8_t>(note), 64}));
        std::unique_lock<std::mutex> lock(callback.mutex);
        ASSERT_TRUE(callback.arrived.wait_for(lock, std::chrono::seconds(2),
                                              [&] { return !callback.arrivals.empty(); }));
        EXPECT_EQ(note, callback.arrivals.front().first);
        latencies.push_back(
            std::chrono::duration<double, std::milli>(callback.arrivals.front().second - sent)
                .count());
        callback.arrivals.clear();
    }
    watcher->UnregisterMIDICallback(&callback);

    std::sort(latencies.begin(), latencies.end());
    const double median = latencies[latencies.size() / 2];
    const double p90 = latencies[latencies.size() * 9 / 10];
    const double worst = latencies.back();
    printf("[ latency  ] %d notes, raw node to callback: median %.2f ms, 90%% %.2f ms, "
           "worst %.2f ms\n",
           kNotes, median, p90, worst);
    EXPECT_LT(p90, 10.0);
}

} // namespace
