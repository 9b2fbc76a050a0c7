// NuvThread: a joinable pthread with a name and a stack size of the caller's choice.
#include "NuvThread"

#include <limits.h>
#include <string.h>

#include <algorithm>

namespace {

// The NuvThread whose t_Main runs on this thread, so that Destroy can tell a call from the
// thread itself (which must not join itself) without reading m_thread across threads.
thread_local NuvThread* t_currentThread = nullptr;
// Set when the thread destroyed its own NuvThread: the object may be gone once t_Main
// returns, so the entry function must not touch it any more.
thread_local bool t_destroyedItself = false;

} // namespace

bool NuvThread::Create(const char* name, unsigned long stackSize) {
    if (FlagCreate())
        return false;
    memset(m_szName, 0, sizeof(m_szName));
    if (name != nullptr)
        strncpy(m_szName, name, sizeof(m_szName) - 1);

    if (!m_created.Create(0))
        return false;
    if (!m_finished.Create(0)) {
        m_created.Destroy();
        return false;
    }

    pthread_attr_t attr;
    bool started = false;
    if (pthread_attr_init(&attr) == 0) {
        const size_t minimum = static_cast<size_t>(PTHREAD_STACK_MIN);
        const size_t size = std::max(static_cast<size_t>(stackSize), minimum);
        started = pthread_attr_setstacksize(&attr, size) == 0 &&
                  pthread_create(&m_thread, &attr, &NuvThread::m_Entry, this) == 0;
        pthread_attr_destroy(&attr);
    }
    if (!started) {
        m_thread = 0;
        m_finished.Destroy();
        m_created.Destroy();
        return false;
    }
    return true;
}

int NuvThread::Destroy() {
    if (!FlagCreate())
        return 0;
    if (t_currentThread == this) {
        // Joining oneself would deadlock: let the thread end on its own.
        pthread_detach(m_thread);
        t_destroyedItself = true;
    } else {
        m_finished.Take();
        pthread_join(m_thread, nullptr);
    }
    m_thread = 0;
    m_finished.Destroy();
    m_created.Destroy();
    return 0;
}

void* NuvThread::m_Entry(void* self) {
    NuvThread* thread = static_cast<NuvThread*>(self);
    t_currentThread = thread;
    pthread_setname_np(pthread_self(), thread->m_szName);
    thread->t_Main();
    if (!t_destroyedItself)
        thread->m_finished.Give();
    t_currentThread = nullptr;
    return nullptr;
}
