// The library as a host sees it, with the VM's USB keyboards (vm-run --usb-keyboards) plugged
// and unplugged under it. Every test starts with the keyboards unplugged and named apart
// ("USB Keys 0", "USB Keys 1", ...), and ends with them unplugged. Tests skip where the VM
// has no USB keyboards (a kernel without the dummy USB controller or the MIDI gadget).
#ifndef NUV_TEST_USB_KEYBOARD_FIXTURE_H
#define NUV_TEST_USB_KEYBOARD_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ManagerVmFixture.h"
#include "NuvMIDI.h"
#include "NuvMIDIEntry.h"
#include "UsbKeyboard.h"
#include "WaitFor.h"

// Everything the host is told, in order: arrivals and departures from the manager, incoming
// MIDI from the devices it is registered on.
class HostLog : public NuvCallback {
public:
    struct Entry {
        int event;
        std::string uid, name; // arrivals and departures
        int id;                // the device: departures of a created device, and MIDI
        _MIDIMessage message;  // MIDI
    };

    int t_OnCallback(int event, void* arg1, void* arg2, void*) override {
        Entry entry{event, "", "", -1, {}};
        if (event == NUV_EVENT_DEVICE_ATTACHED || event == NUV_EVENT_DEVICE_DETACHED) {
            const auto* info = static_cast<const _NuvDevInfo*>(arg1);
            entry.uid = info->UID;
            entry.name = info->deviceName;
            entry.id = arg2 != nullptr ? *static_cast<const int*>(arg2) : -1;
        } else {
            entry.id = *static_cast<const int*>(arg1);
            entry.message = *static_cast<const _MIDIMessage*>(arg2);
        }
        std::lock_guard<std::mutex> lock(m_lock);
        m_entries.push_back(entry);
        return 0;
    }

    std::vector<Entry> Entries() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_entries;
    }
    size_t Size() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_entries.size();
    }
    // The entries from the `since`-th on for which `which` holds.
    size_t Count(const std::function<bool(const Entry&)>& which, size_t since = 0) const {
        std::lock_guard<std::mutex> lock(m_lock);
        size_t count = 0;
        for (size_t i = since; i < m_entries.size(); ++i)
            count += which(m_entries[i]) ? 1 : 0;
        return count;
    }
    size_t Told(int event, const std::string& uid, size_t since = 0) const {
        return Count([&](const Entry& e) { return e.event == event && e.uid == uid; }, since);
    }
    size_t Midi(int id) const {
        return Count([&](const Entry& e) { return IsMidi(e) && e.id == id; });
    }
    Entry LastMidi(int id) const {
        std::lock_guard<std::mutex> lock(m_lock);
        for (auto it = m_entries.rbegin(); it != m_entries.rend(); ++it)
            if (IsMidi(*it) && it->id == id)
                return *it;
        return Entry{-1, "", "", -1, {}};
    }
    static bool IsMidi(const Entry& e) {
        return e.event != NUV_EVENT_DEVICE_ATTACHED && e.event != NUV_EVENT_DEVICE_DETACHED;
    }

private:
    mutable std::mutex m_lock;
    std::vector<Entry> m_entries;
};

class UsbKeyboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string unavailable = UsbKeyboard::Unavailable();
        if (!unavailable.empty())
            GTEST_SKIP() << unavailable;
        m_keyboards = UsbKeyboard::FindAll();
        if (m_keyboards.size() < 2)
            GTEST_SKIP() << "these tests plug two USB keyboards; the VM has " << m_keyboards.size();
        for (UsbKeyboard& keyboard : m_keyboards) {
            if (keyboard.IsPlugged()) {
                ASSERT_TRUE(keyboard.Unplug());
            }
            ASSERT_TRUE(keyboard.SetProduct("USB Keys " + std::to_string(keyboard.Index())));
        }
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_EQ(0, m_manager->RegisterCallback(&m_host));
    }
    void TearDown() override {
        NuvMIDIEntry::DeleteInstance();
        for (UsbKeyboard& keyboard : m_keyboards)
            if (keyboard.IsPlugged()) {
                EXPECT_TRUE(keyboard.Unplug());
            }
    }

    // The UID the library gives a plugged keyboard: its client number.
    static std::string Uid(const UsbKeyboard& keyboard) {
        return std::to_string(keyboard.Client());
    }

    // Plugs the keyboard in and creates its device by its name once the host has been told
    // of it; null when either did not happen.
    INuvMIDIDevice* PlugAndCreate(UsbKeyboard& keyboard) {
        // A replugged keyboard often gets its old client number, and so its old UID, again.
        const size_t mark = m_host.Size();
        if (!keyboard.Plug())
            return nullptr;
        const std::string uid = Uid(keyboard);
        if (!WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_ATTACHED, uid, mark) > 0; }))
            return nullptr;
        return m_manager->CreateDevice(keyboard.Product().c_str());
    }

    // The emulated ARM guest, with host threads calling in, takes longer than the default.
    bool WaitForDeparture(const std::string& uid) {
        const auto deadline = std::chrono::milliseconds(long(5000 * TimeScale()));
        return WaitFor([&] { return m_host.Told(NUV_EVENT_DEVICE_DETACHED, uid) > 0; }, deadline);
    }

    NuvMIDIDeviceManager* Impl() const { return static_cast<NuvMIDIDeviceManager*>(m_manager); }
    int RendererUsers() const { return NuvMIDIDeviceManagerProbe::RendererUsers(Impl()); }

    std::vector<UsbKeyboard> m_keyboards;
    INuvMIDIDeviceManager* m_manager = nullptr;
    HostLog m_host; // outlives the library: TearDown destroys it first
};

#endif
