// The destructors of the platform interfaces are defined here, once, so that each
// interface's vtable and type information live in the library alone, in every build type.

#include <qel/critical_section.h>
#include <qel/event.h>
#include <qel/file.h>
#include <qel/thread.h>

namespace qel {

CriticalSectionWrapper::~CriticalSectionWrapper() = default;
EventWrapper::~EventWrapper() = default;
FileWrapper::~FileWrapper() = default;
ThreadWrapper::~ThreadWrapper() = default;

}  // namespace qel
