// NuvSemaphore: a POSIX unnamed semaphore kept on the heap behind the header's handle.
#include <errno.h>
#include <semaphore.h>

#include <new>

#include "NuvThread"

bool NuvSemaphore::Create(int initialCount) {
    if (m_hSemaphore != nullptr || initialCount < 0)
        return false;
    sem_t* semaphore = new (std::nothrow) sem_t;
    if (semaphore == nullptr)
        return false;
    if (sem_init(semaphore, 0, static_cast<unsigned int>(initialCount)) != 0) {
        delete semaphore;
        return false;
    }
    m_hSemaphore = semaphore;
    return true;
}

void NuvSemaphore::Take() {
    sem_t* semaphore = static_cast<sem_t*>(m_hSemaphore);
    if (semaphore == nullptr)
        return;
    // A signal handler interrupting the wait must not count as a taken unit.
    while (sem_wait(semaphore) != 0 && errno == EINTR) {
    }
}

void NuvSemaphore::Give() {
    sem_t* semaphore = static_cast<sem_t*>(m_hSemaphore);
    if (semaphore != nullptr)
        sem_post(semaphore);
}

void NuvSemaphore::Destroy() {
    sem_t* semaphore = static_cast<sem_t*>(m_hSemaphore);
    if (semaphore == nullptr)
        return;
    m_hSemaphore = nullptr;
    sem_destroy(semaphore);
    delete semaphore;
}
