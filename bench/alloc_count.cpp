// Counts the heap allocations of each thread. The benchmark binary defines the allocation
// functions itself, so that every allocation of the process (operator new, the standard
// library, the logging libraries, stdio buffers) passes through here before it reaches the
// C library's allocator.

#include <cstddef>
#include <cerrno>
#include <cstdint>

#include "bench_support.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

// Plain and trivially initialised: it lives in the thread's static block, so counting can
// never allocate or recurse.
thread_local uint64_t t_allocations = 0;

}  // namespace

namespace bench {

uint64_t allocationsOnThisThread() {
    return t_allocations;
}

}  // namespace bench

extern "C" {

void* malloc(size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* pointer, size_t size) {
    ++t_allocations;
    return __libc_realloc(pointer, size);
}

void* memalign(size_t alignment, size_t size) {
    ++t_allocations;
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    ++t_allocations;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** result, size_t alignment, size_t size) {
    ++t_allocations;
    void* pointer = __libc_memalign(alignment, size);
    if (pointer == nullptr) {
        return ENOMEM;
    }
    *result = pointer;
    return 0;
}

}  // extern "C"
