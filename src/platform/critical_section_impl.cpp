#include "platform/critical_section_impl.h"

namespace qel {

CriticalSectionWrapper* CriticalSectionWrapper::create() {
    return new CriticalSectionImpl();
}

int CriticalSectionWrapper::atomic32Increment(int* value) {
    // Unsigned arithmetic wraps without undefined behaviour; the builtin is one locked add.
    unsigned int* counter = reinterpret_cast<unsigned int*>(value);
    return static_cast<int>(__atomic_add_fetch(counter, 1u, __ATOMIC_SEQ_CST));
}

int CriticalSectionWrapper::atomic32Decrement(int* value) {
    unsigned int* counter = reinterpret_cast<unsigned int*>(value);
    return static_cast<int>(__atomic_sub_fetch(counter, 1u, __ATOMIC_SEQ_CST));
}

CriticalSectionImpl::CriticalSectionImpl() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CriticalSectionImpl::~CriticalSectionImpl() {
    pthread_mutex_destroy(&mutex);
}

void CriticalSectionImpl::enter() {
    pthread_mutex_lock(&mutex);
}

void CriticalSectionImpl::leave() {
    pthread_mutex_unlock(&mutex);
}

}  // namespace qel
