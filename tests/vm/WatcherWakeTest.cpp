// The running watcher starts a pass as soon as the sequencer has input: clients that
// arrive in a rush still become candidates although their announcements are read before
// they have named themselves, and a key press does not wait for the period.
#include <alsa/asoundlib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "WatcherFixture.h"

namespace {

using Clock = std::chrono::steady_clock;

// The candidate keys as the watcher announces them, from its own thread.
class CandidateEvents : public NuvCallback {
public:
    int t_OnCallback(int event, void* arg1, void*, void*) override {
        const std::string key = static_cast<_NuvDetailDevInfo*>(arg1)->key;
        std::lock_guard<std::mutex> lock(m_lock);
        if (event == NUV_EVENT_CANDIDATE_ADDED)
            m_keys.insert(key);
        else if (event == NUV_EVENT_CANDIDATE_REMOVED)
            m_keys.erase(key);
        return 0;
    }
    bool Has(int client) {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_keys.count(std::to_string(client)) == 1;
    }

private:
    std::mutex m_lock;
    std::set<std::string> m_keys;
};

class MIDIWatcherWaking : public ::testing::Test {
protected:
    void SetUp() override {
        if (SequencerView::Read().Clients().empty())
            GTEST_SKIP() << "no kernel sequencer";
        auto keyboards = VirtualKeyboard::FindAll();
        ASSERT_FALSE(keyboards.empty());
        keyboard.reset(new VirtualKeyboard(std::move(keyboards.front())));
        watcher.reset(new NuvMIDIWatcher());
        ASSERT_EQ(0, watcher->Create());
        ASSERT_EQ(0, watcher->RegisterCallback(&events));
        // What a connector does for its device: the keyboard's port feeds port 1.
        ASSERT_EQ(0, snd_seq_connect_from(Access::Seq(*watcher), 1, keyboard->Client(),
                                          keyboard->Port()));
        ASSERT_EQ(0, watcher->Start());
    }
    void TearDown() override {
        if (watcher) {
            EXPECT_EQ(0, watcher->Destroy());
        }
    }

    CandidateEvents events;
    std::unique_ptr<VirtualKeyboard> keyboard;
    std::unique_ptr<NuvMIDIWatcher> watcher;
};

// The sequencer has room for 64 user-space clients, the watcher and the synthesizer's
// included: 200 arrivals come in rounds of 50.
TEST_F(MIDIWatcherWaking, ClientsArrivingInARushAllBecomeCandidatesAndLeave) {
    for (int round = 0; round < 4; ++round) {
        std::vector<std::unique_ptr<UserSpaceClient>> clients;
        for (int i = 0; i < 50; ++i) {
            clients.emplace_back(new UserSpaceClient("Rush Keyboard " + std::to_string(i)));
            ASSERT_TRUE(clients.back()->IsOpen());
        }
        for (const auto& client : clients)
            EXPECT_TRUE(WaitFor([&] { return events.Has(client->Client()); })) << client->Client();

        std::vector<int> numbers;
        for (auto& client : clients) {
            numbers.push_back(client->Client());
            client->Close();
        }
        for (int number : numbers)
            EXPECT_TRUE(WaitFor([&] { return !events.Has(number); })) << number;
    }
}

TEST_F(MIDIWatcherWaking, AClientThatNeverNamesItselfIsSkippedOneThatLeavesAtOnceLeavesNothing) {
    LogCapture log;
    // Opened and never named: the sequencer's placeholder "Client-<number>" stays.
    snd_seq_t* unnamed = nullptr;
    ASSERT_EQ(0, snd_seq_open(&unnamed, "default", SND_SEQ_OPEN_DUPLEX, 0));
    const int unnamedClient = snd_seq_client_id(unnamed);
    snd_seq_t* brief = nullptr;
    ASSERT_EQ(0, snd_seq_open(&brief, "default", SND_SEQ_OPEN_DUPLEX, 0));
    const int briefClient = snd_seq_client_id(brief);
    snd_seq_close(brief);

    const std::string unnamedStart = "\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [" +
                                     std::to_string(unnamedClient) + "], port [";
    const std::string briefStart = "\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [" +
                                   std::to_string(briefClient) + "], port [";
    const std::string briefExit = "\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [" +
                                  std::to_string(briefClient) + "], port number [0] disconnected";
    EXPECT_TRUE(WaitFor([&] {
        return log.CountContaining(unnamedStart) == 1 && log.CountContaining(briefExit) == 1 &&
               log.Has("\n[NuvMIDIWatcher::m_MIDIProcess] MIDIRecorder, so nothing to do\n\n",
                       NUV_LOG_TRACE);
    }));
    EXPECT_FALSE(events.Has(unnamedClient));
    // Set aside, then gone before it was decided: never decided under its placeholder name.
    // (A start read only after the client has gone finds no name at all, and its candidate
    // leaves with the exit that follows.)
    EXPECT_EQ(0, log.CountContaining(briefStart + "0], name [Client-"));
    EXPECT_FALSE(events.Has(briefClient));
    snd_seq_close(unnamed);
}

// How long a note takes from the keyboard's raw node to a callback on the watcher thread:
// the sequencer's input wakes the thread, which waits on no timer.
TEST_F(MIDIWatcherWaking, LatencyFromKeyboardToCallback) {
    LogCapture quiet(NUV_LOG_CRITICAL); // no line per message on the console
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
    watcher->RegisterMIDICallback(keyboard->Client(), &callback);

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
    watcher->UnregisterMIDICallback(keyboard->Client(), &callback);

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
