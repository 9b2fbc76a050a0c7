// The watcher's fan-out of incoming MIDI to registered callbacks: removal from inside a
// nested walk, a connector's own registration, and registration racing a stream of messages
// (one delivery per callback and removal from inside a walk are checked from the host's side
// in the VM: KeyboardCallbacks, FromInsideACallback).
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIWatcher.h"

namespace {

// Records every call into a log shared by all callbacks of a test, and may act during it.
struct Recorder : NuvMIDICallback {
    Recorder(const char* name, std::vector<std::string>& calls) : name(name), calls(calls) {}
    int OnMIDIEvent(int, int, _MIDIMessage&) override {
        calls.push_back(name);
        if (action)
            action();
        return 0;
    }
    std::string name;
    std::vector<std::string>& calls;
    std::function<void()> action;
};

// Counts the calls it gets after the test marked it unregistered.
struct Guarded : NuvMIDICallback {
    int OnMIDIEvent(int, int, _MIDIMessage&) override {
        lateCalls += unregistered.load();
        return ++calls, 0;
    }
    std::atomic<bool> unregistered{true};
    std::atomic<int> lateCalls{0}, calls{0};
};

class MIDIWatcherFanOut : public ::testing::Test {
protected:
    int Send() { return watcher.OnMIDIEvent(20, 16, message); }

    LogCapture quiet{NUV_LOG_CRITICAL}; // keeps the per-message lines off the console
    NuvMIDIWatcher watcher;
    _MIDIMessage message{};
    std::vector<std::string> calls;
    Recorder a{"A", calls}, b{"B", calls}, c{"C", calls};
};

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
TEST_F(MIDIWatcherFanOut, AnUnregisteredCallbackIsNeverCalledAgainWhileMessagesFlow) {
    Guarded hosts[2];
    std::atomic<bool> stop{false};
    std::thread events([&] {
        // Every 16th message, a callback that removes itself from inside the walk.
        a.action = [&] { watcher.UnregisterMIDICallback(20, &a); };
        for (int n = 1; !stop.load(); ++n) {
            if (n % 16 == 0)
                watcher.RegisterMIDICallback(20, &a);
            Send();
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

    for (Guarded& cb : hosts) {
        EXPECT_EQ(0, cb.lateCalls.load());
        EXPECT_GE(cb.calls.load(), 50);
    }
    EXPECT_EQ(0, watcher.UnregisterMIDICallback(20, &a));
}

} // namespace
