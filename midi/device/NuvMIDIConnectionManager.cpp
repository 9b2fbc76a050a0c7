#include "NuvMIDIConnectionManager.h"

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDIWatcher.h"

NuvConnector* NuvMIDIConnectionManager::t_NewConnector(_NuvDetailDevInfo* info) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "");
    // The only watcher this manager is ever given is the library's MIDI watcher.
    auto* watcher = static_cast<NuvMIDIWatcher*>(m_pWatcher);
    NuvMIDIConnector* connector =
        new NuvMIDIConnector(info, watcher, watcher != nullptr ? watcher->SeqSynth() : nullptr);
    if (info == nullptr) {
        // The connector's base has reported the null record; nothing usable was built.
        delete connector;
        return nullptr;
    }
    return connector;
}
