#include "NuvMIDIConnectionManager.h"

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDIWatcher.h"

NuvConnector* NuvMIDIConnectionManager::t_NewConnector(_NuvDetailDevInfo* info) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "");
    // The only watcher this manager is ever given is the library's MIDI watcher.
    NuvMIDIConnector* connector =
        new NuvMIDIConnector(info, static_cast<NuvMIDIWatcher*>(m_pWatcher));
    if (info == nullptr) {
        // The connector's base has reported the null record; nothing usable was built.
        delete connector;
        return nullptr;
    }
    return connector;
}
