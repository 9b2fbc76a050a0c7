// Compile-time checks of the record layouts that hosts and cores built separately rely on.
// Included by the plug-in and compiled for the 32-bit ARM target by the tests.
#ifndef NUV_MIDI_RECORD_LAYOUT_H
#define NUV_MIDI_RECORD_LAYOUT_H

#include <stddef.h>

#include "NuvMIDITypes.h"

#define NUV_CHECK_OFFSET(record, field, offset)                                           \
    static_assert(offsetof(record, field) == (offset), #record "." #field " moved")
#define NUV_CHECK_SIZE(record, size) static_assert(sizeof(record) == (size), #record " resized")

NUV_CHECK_SIZE(_MIDIMessage, 268);
NUV_CHECK_OFFSET(_MIDIMessage, channel, 0);
NUV_CHECK_OFFSET(_MIDIMessage, param, 4);
NUV_CHECK_OFFSET(_MIDIMessage, value, 8);
NUV_CHECK_OFFSET(_MIDIMessage, duration, 12);
NUV_CHECK_OFFSET(_MIDIMessage, text, 12);

NUV_CHECK_SIZE(_NuvDevInfo, 524);
NUV_CHECK_OFFSET(_NuvDevInfo, UID, 0);
NUV_CHECK_OFFSET(_NuvDevInfo, deviceName, 256);
NUV_CHECK_OFFSET(_NuvDevInfo, reserved, 512);
NUV_CHECK_OFFSET(_NuvDevInfo, type, 516);
NUV_CHECK_OFFSET(_NuvDevInfo, isSynth, 520);

NUV_CHECK_SIZE(_MIDIDeviceInfo, 268);
NUV_CHECK_OFFSET(_MIDIDeviceInfo, name, 0);
NUV_CHECK_OFFSET(_MIDIDeviceInfo, id, 260);
NUV_CHECK_OFFSET(_MIDIDeviceInfo, type, 264);

static_assert(sizeof(MIDIEventType) == 4, "MIDIEventType is a 32-bit value");
static_assert(sizeof(MIDIDeviceType) == 4, "MIDIDeviceType is a 32-bit value");

NUV_CHECK_OFFSET(_NuvDetailDevInfo, devInfo, 0);
NUV_CHECK_OFFSET(_NuvDetailDevInfo, devicePath, 524);
NUV_CHECK_OFFSET(_NuvDetailDevInfo, vendorID, 780);
NUV_CHECK_OFFSET(_NuvDetailDevInfo, productID, 788);
NUV_CHECK_OFFSET(_NuvDetailDevInfo, key, 808);
NUV_CHECK_OFFSET(_NuvDetailDevInfo, alive, 1066);

// Records holding pointers widen with the pointer: 32-bit ARM as documented, 64-bit as
// this target lays them out.
#if UINTPTR_MAX == 0xFFFFFFFFu
NUV_CHECK_OFFSET(_NuvDetailDevInfo, pExtraInfo, 1068);
NUV_CHECK_SIZE(_NuvDetailDevInfo, 1072);
NUV_CHECK_SIZE(_MIDIClientInfo, 28);
NUV_CHECK_OFFSET(_MIDIClientInfo, synth, 4);
NUV_CHECK_OFFSET(_MIDIClientInfo, synthClient, 8);
NUV_CHECK_OFFSET(_MIDIClientInfo, synthPort, 12);
NUV_CHECK_OFFSET(_MIDIClientInfo, client, 16);
NUV_CHECK_OFFSET(_MIDIClientInfo, port, 20);
NUV_CHECK_OFFSET(_MIDIClientInfo, isSynth, 24);
#else
NUV_CHECK_OFFSET(_NuvDetailDevInfo, pExtraInfo, 1072);
NUV_CHECK_SIZE(_NuvDetailDevInfo, 1080);
NUV_CHECK_SIZE(_MIDIClientInfo, 40);
NUV_CHECK_OFFSET(_MIDIClientInfo, synth, 8);
NUV_CHECK_OFFSET(_MIDIClientInfo, synthClient, 16);
NUV_CHECK_OFFSET(_MIDIClientInfo, synthPort, 20);
NUV_CHECK_OFFSET(_MIDIClientInfo, client, 24);
NUV_CHECK_OFFSET(_MIDIClientInfo, port, 28);
NUV_CHECK_OFFSET(_MIDIClientInfo, isSynth, 32);
#endif

#endif
