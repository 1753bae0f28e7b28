// What the agent frees it overwrites first: passwords, codes and keys pass through many a buffer
// (archives, parsers, texts that outgrew their place) that nobody names, and would lie in memory
// until something else happens to take their place.
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include <new>

// The sanitizers bring allocators of their own, which keep what is freed on purpose.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

void operator delete(void* memory) noexcept {
    if (!memory)
        return;
    explicit_bzero(memory, malloc_usable_size(memory));
    free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

#endif
