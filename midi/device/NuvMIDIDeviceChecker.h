// The device checker handed to the connection manager: accepts every candidate by
// answering "not implemented".
#ifndef NUV_MIDI_DEVICE_CHECKER_H
#define NUV_MIDI_DEVICE_CHECKER_H

#include "NuvDeviceChecker"

class NuvMIDIDeviceChecker : public NuvDeviceChecker {
public:
    virtual ~NuvMIDIDeviceChecker() {}
    virtual int t_CheckDevice(_NuvDetailDevInfo* info);
};

#endif
