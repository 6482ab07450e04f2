// The non-template classes of the signal module have their destructors here, so that their
// vtables and type information live in the library alone, in every build type.

#include "sigslot/sigslot.h"

namespace sigslot {

single_threaded::~single_threaded() = default;

multi_threaded_local::~multi_threaded_local() {
    pthread_mutex_destroy(&mutex);
}

has_slots_interface::~has_slots_interface() = default;

}  // namespace sigslot
