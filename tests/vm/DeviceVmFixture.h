// The whole library, made and removed around each test, as a host uses it: devices come
// from the device manager, host callbacks stay alive until the library is gone.
#ifndef NUV_TEST_DEVICE_VM_FIXTURE_H
#define NUV_TEST_DEVICE_VM_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "INuvMIDIDeviceManager.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIDevice.h"
#include "NuvMIDIEntry.h"
#include "SequencerView.h"
#include "WaitFor.h"

class DeviceVmTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_NE(nullptr, m_manager);
    }

    void TearDown() override {
        NuvMIDIEntry::DeleteInstance();
        m_manager = nullptr;
    }

    // Waits until the client `name` is a connected device, then creates its device.
    INuvMIDIDevice* CreateDevice(const std::string& name) {
        if (!WaitFor([&] { return m_manager->IsConnected(name.c_str()) == 1; },
                     std::chrono::seconds(10)))
            return nullptr;
        return m_manager->CreateDevice(name.c_str());
    }

    // A host callback that lives until the library has gone.
    RecordingHostCallback& NewHostCallback() {
        m_hostCallbacks.emplace_back(new RecordingHostCallback);
        return *m_hostCallbacks.back();
    }

    static NuvMIDIConnector* ConnectorOf(INuvMIDIDevice* device) {
        return static_cast<NuvMIDIConnector*>(static_cast<NuvMIDIDevice*>(device)->GetConnector());
    }

    // The sequencer client of the library's watcher, -1 when there is none.
    static int WatcherClient() {
        const SequencerView view = SequencerView::Read();
        const SeqClientView* watcher = view.Find("MIDI Watcher");
        return watcher != nullptr ? watcher->number : -1;
    }

    INuvMIDIDeviceManager* m_manager = nullptr;

private:
    // Declared after nothing that uses them: destroyed after TearDown has run.
    std::vector<std::unique_ptr<RecordingHostCallback>> m_hostCallbacks;
};

#endif
