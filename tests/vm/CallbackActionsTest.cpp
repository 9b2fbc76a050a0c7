// Host callbacks that destroy what is calling them, unregister themselves or block: the
// calls return, nothing that was destroyed or unregistered calls back afterwards, and the
// library goes on (or is created again). Many callbacks on one device: one call each.
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ManagerVmFixture.h"
#include "NuvMIDIDevice.h"

struct NuvMIDIDeviceProbe {
    static int HostCalls(INuvMIDIDevice* device) {
        auto* midiDevice = static_cast<NuvMIDIDevice*>(device);
        std::lock_guard<std::mutex> lock(midiDevice->m_callMutex);
        return midiDevice->m_nHostCalls;
    }
};

namespace {

// Runs `action` in its first call, on the watcher thread; counts the calls that come once
// `after` holds (its own action's end, unless told otherwise).
class ActingCallback : public NuvCallback {
public:
    ActingCallback(std::function<int()> action, const std::atomic<bool>* after = nullptr)
        : m_action(std::move(action)), m_after(after != nullptr ? after : &acted) {}
    int t_OnCallback(int, void*, void*, void*) override {
        if (m_after->load())
            late.fetch_add(1);
        if (m_action && !m_started.exchange(true)) {
            result = m_action();
            acted = true;
        }
        return 0;
    }
    std::atomic<bool> acted{false};
    std::atomic<int> result{-1};
    std::atomic<int> late{0};

private:
    std::atomic<bool> m_started{false};
    std::function<int()> m_action;
    const std::atomic<bool>* m_after;
};

enum class Trigger { Note, Arrival }; // a key of keyboard 0; a new client appears
enum class Action { DestroyDevice, DestroyLibrary, UnregisterItself };
struct Case {
    const char* name;
    Trigger trigger;
    Action action;
    int result;
};

// Keyboard 0 taken, keyboard 1 created, both played through their raw nodes.
class KeyboardCallbacks : public ManagerVmTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ManagerVmTest::SetUp());
        m_device = TakeKeyboard(0);
        m_other = CreateKeyboard(1);
        ASSERT_TRUE(m_device != nullptr && m_other != nullptr);
    }
    // True once the events sent so far have been read: a marker from keyboard 1 arrived.
    bool EarlierEventsRead() {
        CountingHostCallback marker;
        const bool arrived = m_other->RegisterCallback(&marker) == 1 &&
                             m_keyboards[1].Write({0x90, 40, 1}) &&
                             WaitFor([&] { return marker.calls > 0; });
        m_other->UnregisterCallback(&marker);
        return arrived;
    }

    INuvMIDIDevice* m_device = nullptr;
    INuvMIDIDevice* m_other = nullptr;
};

class CallbackActions : public KeyboardCallbacks, public ::testing::WithParamInterface<Case> {};

TEST_P(CallbackActions, TheCallReturnsAndNothingItEndedCallsBack) {
    const Case& c = GetParam();
    const int id = m_device->GetID();
    const bool onKey = c.trigger == Trigger::Note;
    std::atomic<bool> entered{false};
    ActingCallback callback([&] {
        entered = true;
        // A host call of the device is under way, waiting for the walk that runs us.
        if (onKey)
            WaitFor([&] { return NuvMIDIDeviceProbe::HostCalls(m_device) > 0; });
        if (c.action == Action::DestroyDevice)
            return m_manager->DestroyDevice(id);
        if (c.action == Action::DestroyLibrary)
            return NuvMIDIEntry::DeleteInstance(), 0;
        return m_device->UnregisterCallback(&callback);
    });
    ActingCallback witness(nullptr, &callback.acted);
    ASSERT_EQ(onKey ? 1 : NUV_OK, onKey ? m_device->RegisterCallback(&callback)
                                        : m_manager->RegisterCallback(&callback));
    ASSERT_TRUE(c.action == Action::UnregisterItself || m_device->RegisterCallback(&witness) == 1);
    ASSERT_TRUE(c.action != Action::DestroyLibrary ||
                m_manager->RegisterCallback(&witness) == NUV_OK);

    std::thread host;
    std::unique_ptr<UserSpaceClient> newcomer;
    CountingHostCallback quiet;
    if (onKey) {
        host = std::thread([&] {
            WaitFor([&] { return entered.load(); });
            m_device->RegisterCallback(&quiet);
        });
        ASSERT_TRUE(m_keyboards[0].Write({0x90, 60, 100}));
    } else {
        newcomer.reset(new UserSpaceClient("Nuv Pedal"));
    }
    const bool returned = WaitFor([&] { return callback.acted.load(); }, std::chrono::seconds(10));
    if (host.joinable())
        returned ? host.join() : host.detach();
    ASSERT_TRUE(returned) << "the call from inside the callback did not return";
    EXPECT_EQ(c.result, callback.result.load());

    // Whatever could call back now: the keyboard plays, a client comes and goes.
    m_keyboards[0].Write({0x90, 62, 100});
    if (c.action == Action::DestroyLibrary) {
        UserSpaceClient("Nuv Late Pedal").Close();
        EXPECT_EQ(nullptr, NuvMIDIEntry::GetDeviceManagerInstance());
        // Waits for the destroyed library to be gone, its watcher thread first.
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
    } else {
        EXPECT_TRUE(EarlierEventsRead());
        if (!onKey)
            m_manager->UnregisterCallback(&callback);
    }
    EXPECT_EQ(0, callback.late.load());
    EXPECT_EQ(0, witness.late.load());
    if (c.action == Action::UnregisterItself) {
        EXPECT_EQ(1, m_device->UnregisterCallback(&quiet));
        return;
    }
    EXPECT_EQ(nullptr, m_manager->GetDevice(id));
    EXPECT_TRUE(WaitFor([&] { return CreateKeyboard(0) != nullptr; }))
        << "the keyboard can be created again";
}

const Case kCases[] = {
    {"KeyCallbackDestroysItsDevice", Trigger::Note, Action::DestroyDevice, NUV_OK},
    {"KeyCallbackDestroysTheLibrary", Trigger::Note, Action::DestroyLibrary, 0},
    {"ArrivalCallbackDestroysADevice", Trigger::Arrival, Action::DestroyDevice, NUV_OK},
    {"ArrivalCallbackDestroysTheLibrary", Trigger::Arrival, Action::DestroyLibrary, 0},
    {"KeyCallbackUnregistersItself", Trigger::Note, Action::UnregisterItself, 1},
};
INSTANTIATE_TEST_SUITE_P(FromInsideACallback, CallbackActions, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(info.param.name);
                         });

// A callback that blocks holds back only the input after it: the host's calls on other
// threads go on, and every key played meanwhile arrives once it returns.
TEST_F(KeyboardCallbacks, ABlockedCallbackHoldsBackOnlyTheInputAfterIt) {
    std::promise<void> open; // broken, and so open, if the test ends early
    std::shared_future<void> gate = open.get_future().share();
    std::atomic<int> calls{0};
    ActingCallback gated([&] {
        ++calls;
        gate.wait();
        return 0;
    });
    ASSERT_EQ(1, m_device->RegisterCallback(&gated));
    ASSERT_TRUE(m_keyboards[0].Write({0x90, 60, 100}));
    ASSERT_TRUE(WaitFor([&] { return calls.load() == 1; }));

    EXPECT_TRUE(SendVolumeAndReadItBack(m_device, 77));
    EXPECT_EQ(m_other, m_manager->GetDevice(m_other->GetID()));
    for (uint8_t key = 61; key < 64; ++key)
        ASSERT_TRUE(m_keyboards[0].Write({0x90, key, 100}));

    open.set_value();
    EXPECT_TRUE(WaitFor([&] { return gated.late.load() == 3; })) << "every key arrives";
    EXPECT_EQ(1, m_device->UnregisterCallback(&gated));
}

// Every host callback of a device receives every event once, however many there are; the
// others keep receiving when one goes, and the device comes back once after the last went.
TEST_F(KeyboardCallbacks, EachCallbackGetsEachEventOnceAndUnregisteringOneLeavesTheOthers) {
    HostLog hosts[16];
    for (HostLog& host : hosts)
        ASSERT_EQ(1, m_device->RegisterCallback(&host));
    ASSERT_EQ(1, m_device->RegisterCallback(&hosts[0])); // again: still one delivery
    auto play = [&](std::vector<uint8_t> notes) {
        for (uint8_t note : notes)
            ASSERT_TRUE(m_keyboards[0].Write({0x90, note, 64}));
        ASSERT_TRUE(EarlierEventsRead());
    };
    play({60, 61});
    ASSERT_EQ(1, m_device->UnregisterCallback(&hosts[0]));
    play({62});
    for (int i = 1; i < 16; ++i)
        ASSERT_EQ(1, m_device->UnregisterCallback(&hosts[i]));
    play({63});
    ASSERT_EQ(1, m_device->RegisterCallback(&hosts[0]));
    play({64});

    EXPECT_EQ((std::vector<int>{60, 61, 64}), hosts[0].Params());
    for (int i = 1; i < 16; ++i)
        EXPECT_EQ((std::vector<int>{60, 61, 62}), hosts[i].Params()) << i;
    EXPECT_EQ(1, m_device->UnregisterCallback(&hosts[0]));
}

} // namespace
