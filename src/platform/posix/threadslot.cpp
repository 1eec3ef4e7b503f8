#include "platform/threadslot.h"

#include <pthread.h>

namespace Platform {

ThreadSlot::ThreadSlot(void (*atEnd)(void* pointer)) {
    pthread_key_t key = 0;
    m_good = pthread_key_create(&key, atEnd) == 0;
    m_key = key;
}

ThreadSlot::~ThreadSlot() {
    if (m_good)
        pthread_key_delete(static_cast<pthread_key_t>(m_key));
    m_good = false;
}

void* ThreadSlot::Get() const {
    return m_good ? pthread_getspecific(static_cast<pthread_key_t>(m_key)) : nullptr;
}

bool ThreadSlot::Set(void* pointer) {
    return m_good && pthread_setspecific(static_cast<pthread_key_t>(m_key), pointer) == 0;
}

} // namespace Platform
