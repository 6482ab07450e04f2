#ifndef QEL_PLATFORM_CRITICAL_SECTION_IMPL_H_
#define QEL_PLATFORM_CRITICAL_SECTION_IMPL_H_

#include <pthread.h>

#include <qel/critical_section.h>

namespace qel {

// The POSIX critical section: one recursive, process-private mutex.
class QEL_EXPORT CriticalSectionImpl : public CriticalSectionWrapper {
public:
    CriticalSectionImpl();
    ~CriticalSectionImpl() override;
    CriticalSectionImpl(const CriticalSectionImpl&) = delete;
    CriticalSectionImpl& operator=(const CriticalSectionImpl&) = delete;

    void enter() override;
    void leave() override;

private:
    pthread_mutex_t mutex;
};

}  // namespace qel

#endif  // QEL_PLATFORM_CRITICAL_SECTION_IMPL_H_
