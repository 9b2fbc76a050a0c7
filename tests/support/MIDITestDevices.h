// Building blocks for tests of connectors and devices: messages, a candidate record as the
// watcher makes it for one client, a host callback.
#ifndef NUV_TEST_MIDI_TEST_DEVICES_H
#define NUV_TEST_MIDI_TEST_DEVICES_H

#include <fluidsynth.h>
#include <stdio.h>
#include <string.h>

#include <atomic>

#include "NuvCallback"
#include "NuvMIDITypes.h"

// A message with the given fields, every other byte zero.
inline _MIDIMessage Message(int channel, int param, int value, int duration = 0) {
    _MIDIMessage msg;
    memset(&msg, 0, sizeof(msg));
    msg.channel = channel;
    msg.param = param;
    msg.value = value;
    msg.duration = duration;
    return msg;
}

// The candidate of one sequencer client, with the client information it owns.
struct TestCandidate {
    TestCandidate(int clientNumber, const char* name, fluid_synth_t* synth) {
        snprintf(info.devInfo.UID, sizeof(info.devInfo.UID), "%d", clientNumber);
        snprintf(info.devInfo.deviceName, sizeof(info.devInfo.deviceName), "%s", name);
        info.devInfo.type = NUV_DEVICE_TYPE_MIDI;
        memcpy(info.devicePath, "MIDIDeviceHandle", 16);
        memcpy(info.key, info.devInfo.UID, sizeof(info.key));
        info.alive = 1;
        info.pExtraInfo = &client;
        client.synth = synth;
        client.client = clientNumber;
    }
    TestCandidate(const TestCandidate&) = delete;
    TestCandidate& operator=(const TestCandidate&) = delete;

    _NuvDetailDevInfo info{};
    _MIDIClientInfo client{};
};

// A host callback that counts its calls.
struct CountingHostCallback : NuvCallback {
    int t_OnCallback(int, void*, void*, void*) override { return ++calls, 0; }
    std::atomic<int> calls{0};
};

#endif
