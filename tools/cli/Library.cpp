#include "Library.h"

#include <dlfcn.h>

#include "NuvLog"

#include "ExitCodes.h"
#include "Report.h"
#include "nuv_audio_out.h"

namespace nuvcli {

int Library::Load(const std::string& path) {
    // Never closed: FluidSynth and ALSA keep process-wide state that must not be unmapped.
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_handle == nullptr)
        return Fail(EXIT_NO_LIBRARY, "cannot load the MIDI library: %s", dlerror());
    m_create = reinterpret_cast<int (*)()>(dlsym(m_handle, "NuvMIDI_Create"));
    m_getDeviceManager =
        reinterpret_cast<INuvMIDIDeviceManager* (*)()>(dlsym(m_handle, "NuvMIDI_GetDeviceManager"));
    m_destroy = reinterpret_cast<void (*)()>(dlsym(m_handle, "NuvMIDI_Destroy"));
    if (m_create == nullptr || m_getDeviceManager == nullptr || m_destroy == nullptr)
        return Fail(EXIT_NO_LIBRARY,
                    "%s is not the MIDI library: it lacks NuvMIDI_Create, "
                    "NuvMIDI_GetDeviceManager or NuvMIDI_Destroy",
                    path.c_str());
    return EXIT_OK;
}

// A symbol of one of the plug-in's own dependencies: a lookup through the plug-in's handle
// searches them too; the library's own name is the fallback for a plug-in linked otherwise.
void* Library::m_Symbol(const char* name, const char* library) {
    if (m_handle == nullptr)
        return nullptr;
    if (void* symbol = dlsym(m_handle, name))
        return symbol;
    void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    return handle != nullptr ? dlsym(handle, name) : nullptr;
}

void Library::SetLogThreshold(int level) {
    auto setThreshold =
        reinterpret_cast<int (*)(int)>(m_Symbol("NuvLog_SetThreshold", "libNuvCore.so.1"));
    if (setThreshold != nullptr)
        setThreshold(level);
}

bool Library::SetAudioDevice(const std::string& pcmName) {
    auto setDevice = reinterpret_cast<decltype(&nuv_audio_out_set_device)>(
        m_Symbol("nuv_audio_out_set_device", "libNuvAudioOut.so.1"));
    return setDevice != nullptr && setDevice(pcmName.c_str()) == 0;
}

bool Library::SetWavFile(const std::string& path) {
    auto setWavFile = reinterpret_cast<decltype(&nuv_audio_out_set_wav_file)>(
        m_Symbol("nuv_audio_out_set_wav_file", "libNuvAudioOut.so.1"));
    return setWavFile != nullptr && setWavFile(path.c_str()) == 0;
}

} // namespace nuvcli
