// Building blocks for tests of connectors and devices without a sequencer: a synthesizer
// of the test's own and a candidate record as the watcher makes it for one client.
#ifndef NUV_TEST_MIDI_TEST_DEVICES_H
#define NUV_TEST_MIDI_TEST_DEVICES_H

#include <fluidsynth.h>
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <string>
#include <vector>

#include "NuvCallback"
#include "NuvMIDICallback.h"
#include "NuvMIDISeqSynth.h"
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

// The library's synthesizer without a sequencer: no MIDI driver, no default font.
class TestSynthesizer {
public:
    TestSynthesizer() { m_owner.CreateSynthesizer(NuvMIDISeqSynth::Kind::kBare); }

    fluid_synth_t* Get() const { return m_owner.Synth(); }
    NuvMIDISeqSynth* Owner() { return &m_owner; }

private:
    NuvMIDISeqSynth m_owner;
};

// The candidate of one sequencer client, with the client information it owns.
struct TestCandidate {
    TestCandidate(int clientNumber, const char* name, fluid_synth_t* synth,
                  snd_seq_t* seq = nullptr, int port = 0) {
        memset(&info, 0, sizeof(info));
        memset(&client, 0, sizeof(client));
        snprintf(info.devInfo.UID, sizeof(info.devInfo.UID), "%d", clientNumber);
        snprintf(info.devInfo.deviceName, sizeof(info.devInfo.deviceName), "%s", name);
        info.devInfo.type = NUV_DEVICE_TYPE_MIDI;
        memcpy(info.devicePath, "MIDIDeviceHandle", 16);
        memcpy(info.key, info.devInfo.UID, sizeof(info.key));
        info.alive = 1;
        info.pExtraInfo = &client;
        client.seq = seq;
        client.synth = synth;
        client.client = clientNumber;
        client.port = port;
    }
    TestCandidate(const TestCandidate&) = delete;
    TestCandidate& operator=(const TestCandidate&) = delete;

    _NuvDetailDevInfo info;
    _MIDIClientInfo client;
};

// One call that a MIDI callback or a host callback received.
struct ReceivedEvent {
    int client; // the sending client; -1 for host callbacks, which are not told
    int code;
    int deviceId; // host callbacks only
    const _MIDIMessage* message;
    _MIDIMessage copy;
    bool lastArgumentNull;
};

// Records what a connector relays.
class RecordingMIDICallback : public NuvMIDICallback {
public:
    int OnMIDIEvent(int client, int code, _MIDIMessage& msg) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back({client, code, -1, &msg, msg, true});
        return 0;
    }
    std::vector<ReceivedEvent> Events() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<ReceivedEvent> m_events;
};

// A host callback that does nothing.
class QuietHostCallback : public NuvCallback {
public:
    int t_OnCallback(int, void*, void*, void*) override { return 0; }
};

// Records what a device hands to the host: code, device id, message, null.
class RecordingHostCallback : public NuvCallback {
public:
    int t_OnCallback(int event, void* arg1, void* arg2, void* arg3) override {
        std::lock_guard<std::mutex> lock(m_lock);
        const _MIDIMessage* msg = static_cast<const _MIDIMessage*>(arg2);
        m_events.push_back({-1, event, *static_cast<const int*>(arg1), msg, *msg, arg3 == nullptr});
        return 0;
    }
    std::vector<ReceivedEvent> Events() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_events;
    }
    size_t Count() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_events.size();
    }

private:
    mutable std::mutex m_lock;
    std::vector<ReceivedEvent> m_events;
};

#endif
