// A device whose client goes away while the host has callbacks registered, through the
// framework core's managers: once the candidate is gone, no callback runs and nothing
// freed is touched, even with events streaming in on another thread.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvDeviceManager"
#include "NuvMIDIConnectionManager.h"
#include "NuvMIDIDevice.h"
#include "NuvMIDIDeviceChecker.h"
#include "NuvMIDIWatcher.h"
#include "WaitFor.h"

namespace {

// The library's watcher without its sequencer: the test adds and removes the candidates
// that its passes would, and plays its event thread.
class CandidateWatcher : public NuvMIDIWatcher {
public:
    int CreateFramework() { return NuvWatcher::Create(); }
    int DestroyFramework() { return NuvWatcher::Destroy(); }

    // A candidate as the watcher makes it for a sequencer client.
    void AddClient(int client, const char* name) {
        auto* info = new _NuvDetailDevInfo();
        snprintf(info->devInfo.UID, sizeof(info->devInfo.UID), "%d", client);
        snprintf(info->devInfo.deviceName, sizeof(info->devInfo.deviceName), "%s", name);
        info->devInfo.type = NUV_DEVICE_TYPE_MIDI;
        memcpy(info->key, info->devInfo.UID, sizeof(info->key));
        auto* clientInfo = new _MIDIClientInfo();
        clientInfo->client = client;
        info->pExtraInfo = clientInfo;
        t_AddCandidate(info);
    }
    void RemoveClient(int client) { t_DeleteCandidate(std::to_string(client).c_str()); }
};

class MIDIDevices : public NuvDeviceManager {
public:
    NuvDevice* t_NewDevice(NuvConnector* connector, int id) override {
        return new NuvMIDIDevice(connector, id);
    }
};

class MIDIDeviceRemoval : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, m_watcher.CreateFramework());
        ASSERT_EQ(0, m_checker.Create());
        ASSERT_EQ(0, m_connections.Create(&m_checker, &m_watcher));
        ASSERT_EQ(0, m_devices.Create(&m_connections));
    }
    void TearDown() override {
        m_devices.Destroy();
        m_connections.Destroy();
        m_checker.Destroy();
        m_watcher.DestroyFramework();
    }

    INuvMIDIDevice* CreateDevice(const char* name) {
        return static_cast<NuvMIDIDevice*>(m_devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, name));
    }

    LogCapture m_quiet{NUV_LOG_CRITICAL};
    CandidateWatcher m_watcher;
    NuvMIDIDeviceChecker m_checker;
    NuvMIDIConnectionManager m_connections;
    MIDIDevices m_devices;
};

TEST_F(MIDIDeviceRemoval, RemovedClientsDeviceIsNeverCalledAgain) {
    m_watcher.AddClient(20, "Keyboard");
    m_watcher.AddClient(24, "Pads");
    INuvMIDIDevice* keyboard = CreateDevice("Keyboard");
    INuvMIDIDevice* pads = CreateDevice("Pads");
    ASSERT_NE(nullptr, keyboard);
    ASSERT_NE(nullptr, pads);
    RecordingHostCallback first, second, padsHost;
    keyboard->RegisterCallback(&first);
    keyboard->RegisterCallback(&second);
    pads->RegisterCallback(&padsHost);

    // The event thread keeps offering events of both clients.
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    std::thread events([&] {
        _MIDIMessage msg;
        memset(&msg, 0, sizeof(msg));
        while (!stop.load()) {
            m_watcher.OnMIDIEvent(20, 16, msg);
            m_watcher.OnMIDIEvent(24, 16, msg);
            ++rounds;
        }
    });
    EXPECT_TRUE(WaitFor([&] { return first.Count() > 0 && padsHost.Count() > 0; }));

    m_watcher.RemoveClient(20);
    const size_t firstAfter = first.Count();
    const size_t secondAfter = second.Count();
    const int roundsAfter = rounds.load();
    EXPECT_TRUE(WaitFor([&] { return rounds.load() > roundsAfter + 100; }));
    stop.store(true);
    events.join();

    EXPECT_EQ(firstAfter, first.Count());
    EXPECT_EQ(secondAfter, second.Count());
    EXPECT_GT(padsHost.Count(), 0u); // the other device keeps receiving
    EXPECT_EQ(0, m_devices.IsConnected(NUV_DEVICE_TYPE_MIDI, "Keyboard"));
}

} // namespace
