/*
 * System calls without the C library around them: they touch neither errno nor any other memory, and no wrapper of a
 * preloaded library sees them. Results are the kernel's: 0 or more, or a negative errno value.
 */
#ifndef NORV_TESTS_SUPPORT_RAW_H
#define NORV_TESTS_SUPPORT_RAW_H

#include <sys/syscall.h>

static inline long raw_call(long number, long a, long b, long c, long d, long e, long f)
{
    long result;
    register long r10 __asm__("r10") = d;
    register long r8 __asm__("r8") = e;
    register long r9 __asm__("r9") = f;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
}

#define RAW_6(number, a, b, c, d, e, f, ...)                                                                           \
    raw_call(number, (long)(a), (long)(b), (long)(c), (long)(d), (long)(e), (long)(f))
/* RAW(write, fd, bytes, count) */
#define RAW(name, ...) RAW_6(SYS_##name, __VA_ARGS__ __VA_OPT__(, ) 0, 0, 0, 0, 0, 0, 0)

#endif
