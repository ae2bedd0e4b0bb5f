#include "tests/support/alloc_fault.h"

#include <cerrno>
#include <cstddef>
#include <glob.h>

static thread_local AllocFault *active = nullptr;

AllocFault::AllocFault(int nth) : nth_(nth)
{
    active = this;
}

AllocFault::~AllocFault()
{
    active = nullptr;
}

bool AllocFault::strikes()
{
    if (++allocations_ != nth_)
        return false;
    errno = ENOMEM;
    return true;
}

void *AllocFault::count(int change, void *block)
{
    if (block != nullptr)
        held_ += change;
    return block;
}

// The linker's --wrap sends a call of NAME to __wrap_NAME; __real_NAME is the original.
#define WRAP_ALLOCATION(Type, name, parameters, ...)                                                                   \
    extern "C" Type __real_##name parameters;                                                                          \
    extern "C" Type __wrap_##name parameters;                                                                          \
    extern "C" Type __wrap_##name parameters                                                                           \
    {                                                                                                                  \
        if (active == nullptr)                                                                                         \
            return __real_##name(__VA_ARGS__);                                                                         \
        if (active->strikes())                                                                                         \
            return nullptr;                                                                                            \
        return static_cast<Type>(active->count(1, __real_##name(__VA_ARGS__)));                                        \
    }
WRAP_ALLOCATION(void *, malloc, (size_t size), size)
WRAP_ALLOCATION(void *, calloc, (size_t count, size_t size), count, size)
WRAP_ALLOCATION(char *, strdup, (const char *text), text)
WRAP_ALLOCATION(char *, strndup, (const char *text, size_t size), text, size)

extern "C" {
void *__real_realloc(void *old, size_t size);
void *__wrap_realloc(void *old, size_t size);
void __real_free(void *block);
void __wrap_free(void *block);
int __real_glob(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found);
int __wrap_glob(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found);
}

void *__wrap_realloc(void *old, size_t size)
{
    if (active == nullptr)
        return __real_realloc(old, size);
    if (active->strikes())
        return nullptr;
    const bool first = old == nullptr;
    void *block = __real_realloc(old, size);
    return first ? active->count(1, block) : block;
}

void __wrap_free(void *block)
{
    if (active != nullptr)
        active->count(-1, block);
    __real_free(block);
}

int __wrap_glob(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found)
{
    return active != nullptr && active->strikes() ? GLOB_NOSPACE : __real_glob(pattern, flags, on_error, found);
}
