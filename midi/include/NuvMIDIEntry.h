// The library's root object: builds the watcher, device checker, connection manager and
// device manager in this order, starts the watcher's thread last, and removes them newest
// first. Also offers the host the loading of kernel modules.
#ifndef NUV_MIDI_ENTRY_H
#define NUV_MIDI_ENTRY_H

#include "INuvMIDIDeviceManager.h"

class NuvMIDIWatcher;
class NuvMIDIDeviceChecker;
class NuvMIDIConnectionManager;
class NuvMIDIDeviceManager;

class NuvMIDIEntry {
public:
    static NuvMIDIEntry* GetInstance();
    static void DeleteInstance();
    static INuvMIDIDeviceManager* GetDeviceManagerInstance();

    int Create();
    void Destroy();
    INuvMIDIDeviceManager* GetDeviceManager();

    // Kernel modules, for the host.
    static int m_ReadProcModules(char* buffer);
    static int m_ExecShell(const char* command);
    static void m_InsertModules(const char* moduleName, const char** commands);

    static NuvMIDIEntry* m_entry;
    static bool m_flagInit;

private:
    NuvMIDIEntry();

    int m_CreateWatcher();
    void m_DestroyWatcher();
    int m_CreateDeviceChecker();
    void m_DestroyDeviceChecker();
    int m_CreateConnectionManager();
    void m_DestroyConnectionManager();
    int m_CreateDeviceManager();
    void m_DestroyDeviceManager();
    int m_StartWatchers();

    NuvMIDIDeviceChecker* m_pDeviceChecker;
    NuvMIDIConnectionManager* m_pConnectionManager;
    NuvMIDIDeviceManager* m_pDeviceManager;
    NuvMIDIWatcher* m_pWatcher;
};

#endif
