// The watcher's fan-out of incoming MIDI to registered callbacks: order, duplicates,
// removal from inside a walk, and registration racing a stream of messages.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "LateCallRecorder.h"
#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIWatcher.h"

namespace {

const std::string kNoDevice = "[NuvMIDIWatcher::OnMIDIEvent] device doesn't exist\n\n";

// Records every call into a log shared by all callbacks of a test, and may act during it.
struct Recorder : NuvMIDICallback {
    Recorder(const char* name, std::vector<std::string>& calls) : name(name), calls(calls) {}
    int OnMIDIEvent(int client, int code, _MIDIMessage& msg) override {
        calls.push_back(name);
        lastClient = client;
        lastCode = code;
        lastMessage = &msg;
        if (action)
            action();
        return 0;
    }
    std::string name;
    std::vector<std::string>& calls;
    std::function<void()> action;
    int lastClient = -1;
    int lastCode = -1;
    _MIDIMessage* lastMessage = nullptr;
};

class MIDIWatcherFanOut : public ::testing::Test {
protected:
    int Send() { return watcher.OnMIDIEvent(20, 16, message); }

    LogCapture log; // also keeps the per-message lines off the console
    NuvMIDIWatcher watcher;
    _MIDIMessage message{};
    std::vector<std::string> calls;
    Recorder a{"A", calls}, b{"B", calls}, c{"C", calls};
};

TEST_F(MIDIWatcherFanOut, TheSendersCallbacksGetTheMessageOnceInRegistrationOrder) {
    EXPECT_EQ(0, Send());
    EXPECT_EQ(1, log.Count(kNoDevice, NUV_LOG_INFO));
    EXPECT_EQ(1, watcher.RegisterMIDICallback(20, nullptr));
    EXPECT_EQ(0, watcher.UnregisterMIDICallback(20, nullptr));
    EXPECT_EQ(1, watcher.RegisterMIDICallback(20, &a));
    EXPECT_EQ(1, watcher.RegisterMIDICallback(20, &b));
    EXPECT_EQ(1, watcher.RegisterMIDICallback(20, &a));
    EXPECT_EQ(1, watcher.RegisterMIDICallback(21, &c));

    EXPECT_EQ(1, Send());
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), calls);
    for (Recorder* r : {&a, &b}) {
        EXPECT_EQ(20, r->lastClient);
        EXPECT_EQ(16, r->lastCode);
        EXPECT_EQ(&message, r->lastMessage);
    }

    EXPECT_EQ(0, watcher.UnregisterMIDICallback(21, &a)); // registered for another client
    EXPECT_EQ(1, watcher.UnregisterMIDICallback(20, &a));
    EXPECT_EQ(0, watcher.UnregisterMIDICallback(20, &a));
    calls.clear();
    Send();
    EXPECT_EQ((std::vector<std::string>{"B"}), calls);
}

TEST_F(MIDIWatcherFanOut, CallbackMayChangeTheListDuringTheWalk) {
    watcher.RegisterMIDICallback(20, &a);
    watcher.RegisterMIDICallback(20, &b);
    watcher.RegisterMIDICallback(20, &c);
    // A removes C and itself, then registers itself again: C is not called in this walk,
    // A's new entry waits for the next message.
    a.action = [&] {
        a.action = nullptr;
        EXPECT_EQ(1, watcher.UnregisterMIDICallback(20, &c));
        EXPECT_EQ(0, watcher.UnregisterMIDICallback(20, &c));
        EXPECT_EQ(1, watcher.UnregisterMIDICallback(20, &a));
        watcher.RegisterMIDICallback(20, &a);
    };
    EXPECT_EQ(1, Send());
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), calls);

    calls.clear();
    Send();
    EXPECT_EQ((std::vector<std::string>{"B", "A"}), calls);
}

TEST_F(MIDIWatcherFanOut, NestedWalkDoesNotEraseUnderTheOuterWalk) {
    watcher.RegisterMIDICallback(20, &a);
    watcher.RegisterMIDICallback(20, &b);
    watcher.RegisterMIDICallback(20, &c);
    // A's call starts a nested walk in which B removes itself; the outer walk, still on
    // A's node, goes on to C over B's removed entry.
    bool nested = false;
    a.action = [&] {
        if (!nested) {
            nested = true;
            watcher.OnMIDIEvent(20, 17, message);
        }
    };
    b.action = [&] { watcher.UnregisterMIDICallback(20, &b); };
    Send();
    EXPECT_EQ((std::vector<std::string>{"A", "A", "B", "C", "C"}), calls);

    calls.clear();
    Send();
    EXPECT_EQ((std::vector<std::string>{"A", "C"}), calls);
}

// A device re-created on a connector registers before the old device's teardown has run:
// that teardown lets go of its own registration only.
TEST_F(MIDIWatcherFanOut, AConnectorLetsGoOnlyOfTheCallbackItRelaysTo) {
    TestCandidate candidate(20, "Keyboard", nullptr);
    NuvMIDIConnector connector(&candidate.info, &watcher, nullptr);
    EXPECT_EQ(1, connector.RegisterMIDICallback(&a));
    EXPECT_EQ(1, connector.RegisterMIDICallback(&b));
    EXPECT_EQ(0, connector.UnregisterMIDICallback(&a));
    EXPECT_EQ(1, Send());
    EXPECT_EQ((std::vector<std::string>{"B"}), calls);

    EXPECT_EQ(1, connector.UnregisterMIDICallback(&b));
    EXPECT_EQ(0, Send());
}

// Host threads register and unregister while a stream of messages is handed out. Once
// UnregisterMIDICallback has returned, that callback must not be called again.
TEST(MIDIWatcherFanOutRace, UnregisteredCallbackIsNeverCalledAgain) {
    using Guarded = LateCallRecorder;
    const int previousThreshold = NuvLog_SetThreshold(NUV_LOG_CRITICAL);
    NuvMIDIWatcher watcher;
    Guarded hosts[2];
    std::vector<std::string> ignored;
    Recorder selfRemoving{"S", ignored};
    std::atomic<bool> stop{false};

    std::thread events([&] {
        _MIDIMessage message{};
        int n = 0;
        while (!stop.load()) {
            // Every 16th message, a callback that removes itself from inside the walk.
            if (++n % 16 == 0) {
                selfRemoving.action = [&] { watcher.UnregisterMIDICallback(20, &selfRemoving); };
                watcher.RegisterMIDICallback(20, &selfRemoving);
            }
            watcher.OnMIDIEvent(20, 16, message);
        }
    });
    std::vector<std::thread> host;
    for (Guarded& cb : hosts) {
        host.emplace_back([&] {
            // Until the stream has met this callback often enough for the race to be real.
            for (int i = 0; (i < 2000 || cb.calls.load() < 50) && i < 1000000; ++i) {
                cb.unregistered.store(false);
                watcher.RegisterMIDICallback(20, &cb);
                if (i % 2 == 0)
                    std::this_thread::yield();
                watcher.UnregisterMIDICallback(20, &cb);
                cb.unregistered.store(true);
            }
        });
    }
    for (auto& t : host)
        t.join();
    stop.store(true);
    events.join();
    NuvLog_SetThreshold(previousThreshold);

    for (Guarded& cb : hosts) {
        EXPECT_EQ(0, cb.lateCalls.load());
        EXPECT_GE(cb.calls.load(), 50);
    }
    EXPECT_EQ(0, watcher.UnregisterMIDICallback(20, &selfRemoving));
}

} // namespace
