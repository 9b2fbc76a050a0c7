// NuvMIDIEntry: the library's one instance, the creation of its four long-lived objects
// and their removal, newest first.
#include "NuvMIDIEntry.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "NuvLog"
#include "NuvMIDIConnectionManager.h"
#include "NuvMIDIDeviceChecker.h"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDIWatcher.h"
#include "NuvResult"

NuvMIDIEntry* NuvMIDIEntry::m_entry = nullptr;
bool NuvMIDIEntry::m_flagInit = false;

namespace {

// Serialises GetInstance and DeleteInstance, so Create and Destroy never overlap; guards
// the reapers.
std::mutex g_libraryMutex;

// A library destroyed from inside one of its own callbacks cannot be torn down there: the
// watcher thread running the callback would have to join itself, and the walk in progress
// would go on through freed objects. DeleteInstance then only takes the library out of use
// and silences its callbacks; a reaper thread stops the watcher thread, which first
// finishes its pass and so unwinds the walk, and destroys the rest. GetInstance and
// DeleteInstance called outside a callback wait for the reapers, so that two libraries
// never hold the audio output at once and nothing is left running when they return.
struct Reapers {
    std::condition_variable done;
    int running = 0;
    std::vector<std::thread> threads;
    std::vector<NuvMIDIEntry*> orphans; // no thread could be started: reaped by the next wait
};

// Never destroyed: a reaper may still finish while the process exits.
Reapers& TheReapers() {
    static Reapers* reapers = new Reapers;
    return *reapers;
}

const char* const kIn = "\n\n <--- IN --- \n\n";
const char* const kOut = "\n\n --- OUT ---> \n\n";

void LogEmptyLine() {
    print_dlog(NUV_LOG_INFO, "%s\n", "");
}

} // namespace

NuvMIDIEntry::NuvMIDIEntry()
    : m_pDeviceChecker(nullptr), m_pConnectionManager(nullptr), m_pDeviceManager(nullptr),
      m_pWatcher(nullptr) {}

NuvMIDIEntry* NuvMIDIEntry::GetInstance() {
    // Inside a callback the reaper may be waiting for this very thread.
    if (!NuvCallbackHandler::InCallback())
        m_WaitForReapers();
    std::lock_guard<std::mutex> lock(g_libraryMutex);
    if (!m_flagInit && m_entry == nullptr) {
        m_entry = new NuvMIDIEntry();
        if (m_entry->Create() != NUV_OK) {
            // Nothing of a failed creation stays: the next call starts afresh.
            delete m_entry;
            m_entry = nullptr;
        }
    }
    return m_entry;
}

void NuvMIDIEntry::DeleteInstance() {
    if (NuvCallbackHandler::InCallback()) {
        std::lock_guard<std::mutex> lock(g_libraryMutex);
        if (m_flagInit)
            m_Retire();
        return;
    }
    m_WaitForReapers();
    std::lock_guard<std::mutex> lock(g_libraryMutex);
    if (m_flagInit) {
        m_entry->Destroy();
        delete m_entry;
        m_entry = nullptr;
    }
}

// Under the library mutex, from inside a callback of this library.
void NuvMIDIEntry::m_Retire() {
    NuvMIDIEntry* entry = m_entry;
    m_entry = nullptr;
    m_flagInit = false;
    entry->m_pDeviceManager->SilenceAll();
    Reapers& reapers = TheReapers();
    try {
        reapers.threads.emplace_back([entry] {
            m_Reap(entry);
            std::lock_guard<std::mutex> lock(g_libraryMutex);
            --TheReapers().running;
            TheReapers().done.notify_all();
        });
        ++reapers.running; // before the reaper can count down: it needs the mutex held here
    } catch (const std::system_error&) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "ERROR: no thread to destroy the library; the next NuvMIDI_Create or "
                   "NuvMIDI_Destroy does.");
        reapers.orphans.push_back(entry);
    }
}

void NuvMIDIEntry::m_Reap(NuvMIDIEntry* entry) {
    // The pass that asked for the teardown ends first: nothing of its walk is freed under it.
    entry->m_pWatcher->NuvWatcher::Stop();
    print_dlog(NUV_LOG_INFO, "%s\n", kIn);
    entry->m_DestroyObjects();
    print_dlog(NUV_LOG_INFO, "%s\n", kOut);
    delete entry;
}

void NuvMIDIEntry::m_WaitForReapers() {
    std::vector<std::thread> threads;
    std::vector<NuvMIDIEntry*> orphans;
    {
        std::unique_lock<std::mutex> lock(g_libraryMutex);
        Reapers& reapers = TheReapers();
        reapers.done.wait(lock, [&] { return reapers.running == 0; });
        threads.swap(reapers.threads);
        orphans.swap(reapers.orphans);
    }
    for (std::thread& thread : threads)
        thread.join();
    for (NuvMIDIEntry* entry : orphans)
        m_Reap(entry);
}

INuvMIDIDeviceManager* NuvMIDIEntry::GetDeviceManagerInstance() {
    if (!m_flagInit)
        return nullptr;
    return m_entry->GetDeviceManager();
}

INuvMIDIDeviceManager* NuvMIDIEntry::GetDeviceManager() {
    LogEmptyLine();
    return m_pDeviceManager;
}

int NuvMIDIEntry::Create() {
    if (m_flagInit)
        return NUV_OK;
    print_dlog(NUV_LOG_INFO, "%s\n", kIn);

    if (m_CreateWatcher() != NUV_OK)
        return NUV_ERR_CREATE_LIBRARY;
    if (m_CreateDeviceChecker() != NUV_OK) {
        m_DestroyWatcher();
        return NUV_ERR_CREATE_LIBRARY;
    }
    if (m_CreateConnectionManager() != NUV_OK) {
        m_DestroyDeviceChecker();
        m_DestroyWatcher();
        return NUV_ERR_CREATE_LIBRARY;
    }
    if (m_CreateDeviceManager() != NUV_OK) {
        m_DestroyConnectionManager();
        m_DestroyDeviceChecker();
        m_DestroyWatcher();
        return NUV_ERR_CREATE_LIBRARY;
    }
    // The passes reach every object above, so the thread starts only now.
    m_StartWatchers();

    m_flagInit = true;
    print_dlog(NUV_LOG_INFO, "%s\n", kOut);
    return NUV_OK;
}

void NuvMIDIEntry::Destroy() {
    print_dlog(NUV_LOG_INFO, "%s\n", kIn);
    if (m_flagInit) {
        m_DestroyObjects();
        m_flagInit = false;
    }
    print_dlog(NUV_LOG_INFO, "%s\n", kOut);
}

void NuvMIDIEntry::m_DestroyObjects() {
    m_DestroyDeviceManager();
    m_DestroyConnectionManager();
    m_DestroyDeviceChecker();
    // Last: its thread runs passes until here, and its Destroy stops it.
    m_DestroyWatcher();
}

int NuvMIDIEntry::m_CreateWatcher() {
    LogEmptyLine();
    m_pWatcher = new NuvMIDIWatcher();
    const int result = m_pWatcher->Create();
    if (result != NUV_OK) {
        delete m_pWatcher;
        m_pWatcher = nullptr;
        return NUV_ERR_CREATE_LIBRARY;
    }
    return NUV_OK;
}

void NuvMIDIEntry::m_DestroyWatcher() {
    LogEmptyLine();
    if (m_pWatcher == nullptr)
        return;
    m_pWatcher->Destroy();
    delete m_pWatcher;
    m_pWatcher = nullptr;
}

int NuvMIDIEntry::m_CreateDeviceChecker() {
    LogEmptyLine();
    m_pDeviceChecker = new NuvMIDIDeviceChecker();
    if (m_pDeviceChecker->NuvDeviceChecker::Create() != NUV_OK) {
        delete m_pDeviceChecker;
        m_pDeviceChecker = nullptr;
        return NUV_ERR_CREATE_LIBRARY;
    }
    return NUV_OK;
}

void NuvMIDIEntry::m_DestroyDeviceChecker() {
    LogEmptyLine();
    if (m_pDeviceChecker == nullptr)
        return;
    m_pDeviceChecker->NuvDeviceChecker::Destroy();
    delete m_pDeviceChecker;
    m_pDeviceChecker = nullptr;
}

int NuvMIDIEntry::m_CreateConnectionManager() {
    LogEmptyLine();
    m_pConnectionManager = new NuvMIDIConnectionManager();
    if (m_pConnectionManager->NuvConnectionManager::Create(m_pDeviceChecker, m_pWatcher) !=
        NUV_OK) {
        delete m_pConnectionManager;
        m_pConnectionManager = nullptr;
        return NUV_ERR_CREATE_LIBRARY;
    }
    return NUV_OK;
}

void NuvMIDIEntry::m_DestroyConnectionManager() {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: m_DestroyConnectionManager().");
    if (m_pConnectionManager == nullptr)
        return;
    m_pConnectionManager->NuvConnectionManager::Destroy();
    delete m_pConnectionManager;
    m_pConnectionManager = nullptr;
}

int NuvMIDIEntry::m_CreateDeviceManager() {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: m_CreateDeviceManager().");
    m_pDeviceManager = new NuvMIDIDeviceManager();
    if (m_pDeviceManager->NuvDeviceManager::Create(m_pConnectionManager) != NUV_OK) {
        delete m_pDeviceManager;
        m_pDeviceManager = nullptr;
        return NUV_ERR_CREATE_MANAGER;
    }
    return NUV_OK;
}

void NuvMIDIEntry::m_DestroyDeviceManager() {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: m_DestroyDeviceManager().");
    if (m_pDeviceManager == nullptr)
        return;
    m_pDeviceManager->NuvDeviceManager::Destroy();
    delete m_pDeviceManager;
    m_pDeviceManager = nullptr;
}

int NuvMIDIEntry::m_StartWatchers() {
    LogEmptyLine();
    if (m_pWatcher == nullptr)
        return NUV_OK;
    return m_pWatcher->NuvWatcher::Start();
}
