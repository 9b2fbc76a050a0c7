// NuvMIDIEntry: the library's one instance, the creation of its four long-lived objects
// and their removal, newest first.
#include "NuvMIDIEntry.h"

#include <pthread.h>

#include "NuvLog"
#include "NuvMIDIConnectionManager.h"
#include "NuvMIDIDeviceChecker.h"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDIWatcher.h"
#include "NuvResult"

NuvMIDIEntry* NuvMIDIEntry::m_entry = nullptr;
bool NuvMIDIEntry::m_flagInit = false;

namespace {

// Serialises GetInstance and DeleteInstance, so Create and Destroy never overlap.
pthread_mutex_t g_libraryMutex = PTHREAD_MUTEX_INITIALIZER;

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
    pthread_mutex_lock(&g_libraryMutex);
    if (!m_flagInit && m_entry == nullptr) {
        m_entry = new NuvMIDIEntry();
        if (m_entry->Create() != NUV_OK) {
            // Nothing of a failed creation stays: the next call starts afresh.
            delete m_entry;
            m_entry = nullptr;
        }
    }
    NuvMIDIEntry* entry = m_entry;
    pthread_mutex_unlock(&g_libraryMutex);
    return entry;
}

void NuvMIDIEntry::DeleteInstance() {
    pthread_mutex_lock(&g_libraryMutex);
    if (m_flagInit) {
        m_entry->Destroy();
        delete m_entry;
        m_entry = nullptr;
    }
    pthread_mutex_unlock(&g_libraryMutex);
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
        m_DestroyDeviceManager();
        m_DestroyConnectionManager();
        m_DestroyDeviceChecker();
        // Last: its thread runs passes until here, and its Destroy stops it.
        m_DestroyWatcher();
        m_flagInit = false;
    }
    print_dlog(NUV_LOG_INFO, "%s\n", kOut);
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
