// The library as a host sees it inside the test VM: created through its entry, with the
// VM's two virtual keyboards ("Virtual Raw MIDI C-D") found as devices.
#ifndef NUV_TEST_MANAGER_VM_FIXTURE_H
#define NUV_TEST_MANAGER_VM_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "MIDITestDevices.h"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDIEntry.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"

struct NuvMIDIDeviceManagerProbe {
    static int RendererUsers(NuvMIDIDeviceManager* manager) {
        std::lock_guard<std::recursive_mutex> lock(manager->m_rendererMutex);
        return manager->m_rendererRefCount;
    }
    static bool HasRenderer(NuvMIDIDeviceManager* manager) {
        std::lock_guard<std::recursive_mutex> lock(manager->m_rendererMutex);
        return manager->m_pRenderer != nullptr;
    }
};

// Destroys the library when it goes: declared after a test's own host callbacks, it ends the
// library before them however the test ends.
struct LibraryGoesFirst {
    ~LibraryGoesFirst() { NuvMIDIEntry::DeleteInstance(); }
};

// Puts other bytes, or nothing at all, in the default sound font's place for its scope (the test
// VM runs as root); the installed font is put back afterwards.
class DefaultFontSwap {
public:
    DefaultFontSwap() : m_moved(std::rename(kPath, kSaved) == 0) {}
    explicit DefaultFontSwap(const std::string& contents) : DefaultFontSwap() {
        std::ofstream(kPath, std::ios::binary) << contents;
    }
    ~DefaultFontSwap() {
        std::remove(kPath);
        if (m_moved)
            std::rename(kSaved, kPath);
    }

private:
    static constexpr const char* kPath = "/usr/share/tallowin/DefaultSF.sf2";
    static constexpr const char* kSaved = "/usr/share/tallowin/DefaultSF.sf2.saved-by-test";
    bool m_moved;
};

class ManagerVmTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
        m_manager = NuvMIDIEntry::GetDeviceManagerInstance();
        ASSERT_NE(nullptr, m_manager);
        ASSERT_TRUE(WaitFor([&] { return m_FindKeyboards() >= 2; }, std::chrono::seconds(10)))
            << "the VM's two virtual keyboards were not found";
    }
    void TearDown() override {
        NuvMIDIEntry::DeleteInstance();
        // Subscriptions between the keyboards outlive the library: leave none behind.
        for (size_t a = 0; a < m_clients.size(); ++a)
            for (size_t b = 0; b < m_clients.size(); ++b)
                if (a != b)
                    DisconnectPorts(m_clients[a], m_clients[b]);
    }

    NuvMIDIDeviceManager* Impl() const { return static_cast<NuvMIDIDeviceManager*>(m_manager); }
    int RendererUsers() const { return NuvMIDIDeviceManagerProbe::RendererUsers(Impl()); }
    bool HasRenderer() const { return NuvMIDIDeviceManagerProbe::HasRenderer(Impl()); }

    // Creates the device of keyboard `index` (0 or 1) without taking it.
    INuvMIDIDevice* CreateKeyboard(int index) {
        return m_manager->CreateDevice(m_keyboards.at(size_t(index)).c_str());
    }
    // Creates and takes it, as a host does before using it.
    INuvMIDIDevice* TakeKeyboard(int index) {
        INuvMIDIDevice* created = CreateKeyboard(index);
        return created != nullptr ? m_manager->GetDevice(created->GetID()) : nullptr;
    }
    const std::string& KeyboardName(int index) const { return m_keyboards.at(size_t(index)); }
    // The raw MIDI node of keyboard `index`: "Virtual Raw MIDI 1-0" is /dev/snd/midiC1D0.
    std::string KeyboardNode(int index) const {
        int card = -1, device = -1;
        std::sscanf(KeyboardName(index).c_str(), "Virtual Raw MIDI %d-%d", &card, &device);
        return "/dev/snd/midiC" + std::to_string(card) + "D" + std::to_string(device);
    }

public: // stream ends, also for the USB keyboard tests
    static _MIDIDeviceInfo End(INuvMIDIDevice* device, int type) {
        _MIDIDeviceInfo info{};
        std::snprintf(info.name, sizeof info.name, "device %d",
                      device != nullptr ? device->GetID() : -1);
        info.id = device != nullptr ? device->GetID() : -1;
        info.type = type;
        return info;
    }
    static _MIDIDeviceInfo FileEnd(const std::string& path) {
        _MIDIDeviceInfo info{};
        std::snprintf(info.name, sizeof info.name, "%s", path.c_str());
        info.type = MIDI_DEVICE_TYPE_FILE;
        return info;
    }

protected:
    INuvMIDIDeviceManager* m_manager = nullptr;

private:
    size_t m_FindKeyboards() {
        m_keyboards.clear();
        m_clients.clear();
        for (int index = 0;; ++index) {
            _NuvDevInfo info{};
            bool created = false;
            if (m_manager->GetConnectedDeviceInfo(info, created, index) != 0)
                break;
            if (std::strncmp(info.deviceName, "Virtual Raw MIDI", 16) == 0) {
                m_keyboards.push_back(info.deviceName);
                m_clients.push_back(std::atoi(info.UID));
            }
        }
        return m_keyboards.size();
    }

    std::vector<std::string> m_keyboards;
    std::vector<int> m_clients;
};

#endif
