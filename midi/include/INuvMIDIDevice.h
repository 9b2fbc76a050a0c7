// The host's view of one MIDI device. The slot order is fixed: hosts are built against it.
#ifndef NUV_INUVMIDIDEVICE_H
#define NUV_INUVMIDIDEVICE_H

#include <string>

#include "INuvDevice"
#include "NuvMIDITypes.h"

class INuvMIDIDevice : public INuvDevice {
public:
    virtual ~INuvMIDIDevice() {}
    virtual int GetInformation(MIDIEventType type, _MIDIMessage* msg) = 0;
    virtual int SendMessage(MIDIEventType type, _MIDIMessage& msg) = 0;
    virtual int LoadSoundFontFile(const std::string& path) = 0;
    virtual int UnloadSoundFontFile(unsigned int fontId) = 0;
    virtual std::string GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                               unsigned int count) = 0;

    // Not a slot: a null path would throw while the string is made, before the library
    // could refuse it; as an empty path it is refused with -1.
    int LoadSoundFontFile(const char* path) {
        return LoadSoundFontFile(std::string(path != nullptr ? path : ""));
    }
};

#endif
