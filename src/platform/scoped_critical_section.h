#ifndef QEL_PLATFORM_SCOPED_CRITICAL_SECTION_H_
#define QEL_PLATFORM_SCOPED_CRITICAL_SECTION_H_

#include <qel/critical_section.h>

namespace qel {

// Holds a critical section for the lifetime of the guard, so that every way out of a
// scope releases it.
class ScopedCriticalSection {
public:
    explicit ScopedCriticalSection(CriticalSectionWrapper& section) : m_section(section) {
        m_section.enter();
    }
    ~ScopedCriticalSection() { m_section.leave(); }
    ScopedCriticalSection(const ScopedCriticalSection&) = delete;
    ScopedCriticalSection& operator=(const ScopedCriticalSection&) = delete;

private:
    CriticalSectionWrapper& m_section;
};

}  // namespace qel

#endif  // QEL_PLATFORM_SCOPED_CRITICAL_SECTION_H_
