// The library's one software synthesizer: FluidSynth with its ALSA sequencer MIDI driver,
// loaded with the default sound font when that file exists.
#include <dlfcn.h>
#include <sys/stat.h>

#include <mutex>

#include "NuvLog"
#include "NuvMIDIHandles.h"
#include "NuvMIDISynthSettings.h"
#include "NuvMIDIWatcher.h"
#include "NuvResult"

namespace {

// Debian's FluidSynth opens libinstpatch (its DLS loader) with every synthesizer and closes
// it with the synthesizer. Each open after a close registers the library's types anew and
// loses the old ones: 2.4 KiB for every synthesizer made, so every library cycle. One open
// held for the life of the process turns the synthesizers' opens and closes into counts.
// A FluidSynth without libinstpatch has nothing to hold.
void HoldInstpatchOpen() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Loaded already when FluidSynth uses it; the handle is kept, as is the open.
        void* instpatch = dlopen("libinstpatch-1.0.so.2", RTLD_NOW | RTLD_NOLOAD);
        if (instpatch == nullptr)
            return;
        if (auto open = reinterpret_cast<void (*)()>(dlsym(instpatch, "ipatch_init")))
            open();
    });
}

} // namespace

int NuvMIDIWatcher::m_CreateSynthesizer() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_CreateSynthesizer]\n");

    // Held until the synthesizer is ready, so that a failure releases what was made.
    NuvFluidSettings settings(new_fluid_settings());
    NuvFluidSynth synth;
    std::unique_ptr<NuvMIDISynthActivity> activity; // the driver's handler: released after it
    NuvFluidMIDIDriver driver;
    HoldInstpatchOpen();
    if (settings) {
        NuvMIDIApplySynthSettings(settings.get());
        synth.reset(new_fluid_synth(settings.get()));
        if (synth) {
            activity.reset(new NuvMIDISynthActivity(synth.get()));
            driver.reset(new_fluid_midi_driver(settings.get(), NuvMIDISynthActivity::HandleEvent,
                                               activity.get()));
        }
    }
    if (!synth || !driver) {
        print_dlog(NUV_LOG_CRITICAL,
                   "\n[NuvMIDIWatcher::m_CreateSynthesizer] new_fluid_synth or "
                   "new_fluid_midi_driver failed.m_pSynthHandle=[%p],m_pMIDIDriver=[%p].\n ",
                   static_cast<void*>(synth.get()), static_cast<void*>(driver.get()));
        return NUV_ERR_GENERAL;
    }

    struct stat status;
    if (lstat(kDefaultSoundFont, &status) == 0) {
        const int fontId = fluid_synth_sfload(synth.get(), kDefaultSoundFont, 1);
        if (fontId < 0) {
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIWatcher::m_CreateSynthesizer] Unable to load default sound "
                       "font file\n ");
            return NUV_ERR_GENERAL;
        }
        print_dlog(NUV_LOG_TRACE, "\n[NuvMIDIWatcher::m_CreateSynthesizer] Font file id [%d]\n",
                   fontId);
    }

    m_pSettings = settings.release();
    m_pSynthHandle = synth.release();
    m_pMIDIDriver = driver.release();
    m_pSynthActivity = std::move(activity);
    return 0;
}

// Reverse order of creation: the driver feeds the synthesizer, which reads the settings.
void NuvMIDIWatcher::m_DestroySythesizer() {
    print_dlog(NUV_LOG_TRACE, "%s\n",
               "\n[NuvMIDIWatcher::m_DestroySythesizer] Destroying synthesizer\n");
    if (m_pMIDIDriver != nullptr)
        delete_fluid_midi_driver(m_pMIDIDriver);
    m_pSynthActivity.reset();
    if (m_pSynthHandle != nullptr)
        delete_fluid_synth(m_pSynthHandle);
    if (m_pSettings != nullptr)
        delete_fluid_settings(m_pSettings);
    m_pMIDIDriver = nullptr;
    m_pSynthHandle = nullptr;
    m_pSettings = nullptr;
}
