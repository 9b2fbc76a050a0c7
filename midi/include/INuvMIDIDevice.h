// The host's view of one MIDI device, from INuvMIDIDeviceManager::CreateDevice or
// GetDevice. The slot order is fixed: hosts are built against it. Calls may come from any
// host thread; a device that departs meanwhile makes them do nothing.
//
// What any device is sent is played by the library's one synthesizer (heard once
// GetDevice has started the renderer); queries and sound fonts concern that synthesizer
// whichever device they go through. Incoming MIDI reaches the callbacks registered with
// RegisterCallback (inherited from INuvDevice) on the library's watcher thread, as
//   event 16 note on, 17 note off, 20 control change, 21 program change,
//         22 channel pressure, 23 pitch bend (the sequencer's event type + 10),
//   arg1  const int* of the device id, arg2 _MIDIMessage* (channel, param = note or
//         controller, value = velocity, controller value, program, pressure, or pitch
//         bend from -8192 to 8191), arg3 null;
// both pointers are valid only during the call. Other sequencer events (clock, SysEx,
// active sensing) are not delivered.
#ifndef NUV_INUVMIDIDEVICE_H
#define NUV_INUVMIDIDEVICE_H

#include <string>

#include "INuvDevice"
#include "NuvMIDITypes.h"

class INuvMIDIDevice : public INuvDevice {
public:
    virtual ~INuvMIDIDevice() {}
    // Reads the synthesizer's state for msg->channel into msg: CONTROL_CHANGE the value of
    // controller msg->param, PITCH_BEND 0 to 16383 (8192 centre), both also as text;
    // PROGRAM_CHANGE "font:bank:program" in text. 0, or 9900 for CHANNEL_PRESSURE.
    virtual int GetInformation(MIDIEventType type, _MIDIMessage* msg) = 0;
    // Sends one message at once (note events carry msg.duration; no note-off is added).
    // Always 0.
    virtual int SendMessage(MIDIEventType type, _MIDIMessage& msg) = 0;
    // Loads a SoundFont file on top of the others ("Default" names the default font):
    // its font id, or -1.
    virtual int LoadSoundFontFile(const std::string& path) = 0;
    // 1 when the font was unloaded, 0 when no such font is loaded.
    virtual int UnloadSoundFontFile(unsigned int fontId) = 0;
    // Up to `count` (at most 45) of the font's presets from index `start`, each as
    // "bbb:ppp name," in 21 characters; empty for an unknown font.
    virtual std::string GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                               unsigned int count) = 0;

    // Not a slot: a null path would throw while the string is made, before the library
    // could refuse it; as an empty path it is refused with -1.
    int LoadSoundFontFile(const char* path) {
        return LoadSoundFontFile(std::string(path != nullptr ? path : ""));
    }
};

#endif
