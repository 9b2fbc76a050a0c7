// The library's root object: builds the watcher, device checker, connection manager and
// device manager in this order, starts the watcher's thread last, and removes them newest
// first. Also offers the host the loading of kernel modules: of this class a host calls
// only the three static module operations, the library's only exported C++ symbols (the
// rest is reached through NuvMIDI.h's three functions).
#ifndef NUV_MIDI_ENTRY_H
#define NUV_MIDI_ENTRY_H

#include "INuvMIDIDeviceManager.h"

#define NUV_MIDI_EXPORT __attribute__((visibility("default")))

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

    // Kernel modules, for the host. m_ReadProcModules fills 5120 bytes of `buffer` from
    // /proc/modules (1: read, 0: failed); m_ExecShell runs `command` with /bin/sh -c and
    // returns its wait status (-1: could not run); m_InsertModules waits up to about ten
    // seconds for `moduleName` to be loaded, then runs each command of the null-terminated
    // `commands`.
    NUV_MIDI_EXPORT static int m_ReadProcModules(char* buffer);
    NUV_MIDI_EXPORT static int m_ExecShell(const char* command);
    NUV_MIDI_EXPORT static void m_InsertModules(const char* moduleName, const char** commands);

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
    void m_DestroyObjects();

    // Destruction from inside one of the library's callbacks (NuvMIDIEntry.cpp).
    static void m_Retire();
    static void m_Reap(NuvMIDIEntry* entry);
    static void m_WaitForReapers();

    NuvMIDIDeviceChecker* m_pDeviceChecker;
    NuvMIDIConnectionManager* m_pConnectionManager;
    NuvMIDIDeviceManager* m_pDeviceManager;
    NuvMIDIWatcher* m_pWatcher;
};

#endif
