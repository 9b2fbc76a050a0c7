// A MIDI callback that counts the calls it gets after the test marked it unregistered:
// once UnregisterMIDICallback has returned, there must be none.
#ifndef NUV_TEST_LATE_CALL_RECORDER_H
#define NUV_TEST_LATE_CALL_RECORDER_H

#include <atomic>

#include "NuvMIDICallback.h"

struct LateCallRecorder : NuvMIDICallback {
    int OnMIDIEvent(int, int, _MIDIMessage&) override {
        if (unregistered.load())
            lateCalls.fetch_add(1);
        calls.fetch_add(1);
        return 0;
    }
    std::atomic<bool> unregistered{true};
    std::atomic<int> lateCalls{0};
    std::atomic<int> calls{0};
};

#endif
