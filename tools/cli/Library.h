// libNuvMIDI.so as a host loads it: dlopen, then the three exported functions. The log
// threshold of the core and the choice of audio sink are looked up the same way, so that
// nuvmidi links none of the library's code.
#ifndef NUVMIDI_CLI_LIBRARY_H
#define NUVMIDI_CLI_LIBRARY_H

#include <string>

#include "NuvMIDI.h"

namespace nuvcli {

class Library {
public:
    Library() = default;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // 0, or EXIT_NO_LIBRARY after printing why.
    int Load(const std::string& path);

    int Create() { return m_create(); }
    INuvMIDIDeviceManager* GetDeviceManager() { return m_getDeviceManager(); }
    void Destroy() { m_destroy(); }

    // The core's log threshold (2 quiet, 4 trace); ignored when the core lacks it.
    void SetLogThreshold(int level);
    // The audio output's sink, before anything plays. False when the library offers none.
    bool SetAudioDevice(const std::string& pcmName);
    bool SetWavFile(const std::string& path);

private:
    void* m_Symbol(const char* name, const char* library);

    void* m_handle = nullptr;
    int (*m_create)() = nullptr;
    INuvMIDIDeviceManager* (*m_getDeviceManager)() = nullptr;
    void (*m_destroy)() = nullptr;
};

} // namespace nuvcli

#endif
