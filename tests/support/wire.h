/*
 * What the programs of a box say to the test that made it, and where they find it.
 *
 * A program connects to BOX_ASK, sends one `struct box_ask` with its texts, and does what the answers tell it until one
 * of them ends the talk. Bytes that belong to an answer follow it. Log lines travel as everywhere, by BOX_LOG.
 */
#ifndef NORV_TESTS_SUPPORT_WIRE_H
#define NORV_TESTS_SUPPORT_WIRE_H

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): for C too */

#define BOX_DIR "/.box"
#define BOX_ASK BOX_DIR "/ask"
#define BOX_LOG BOX_DIR "/log"
#define BOX_PROC BOX_DIR "/proc"     /* the true one, read-only */
#define BOX_SHARED BOX_DIR "/shared" /* struct box_shared, mapped by every preloaded process */
#define BOX_PRELOAD BOX_DIR "/preload.so"
#define BOX_STANDIN BOX_DIR "/standin"     /* each stand-in is a link to it */
#define BOX_HOST BOX_DIR "/host"           /* the host's own programs, at their paths */
#define BOX_VOLUMES BOX_DIR "/volumes"     /* what is mounted in place of a source */
#define BOX_SANITIZER BOX_DIR "/sanitizer" /* reports of sanitizers, with the pid behind a dot */
#define BOX_BOARD "/dev/norvbios"

/*
 * The calls that are told, with the form of their arguments in the record:
 *   s text   d decimal   x hex   o octal   f descriptor, shown as its path   T seconds and microseconds
 * What stands behind BOX_FIRST_WATCHED is told only when box_shared.watched has its bit.
 */
#define BOX_CALLS(X)                                                                                                   \
    X(program, "")                                                                                                     \
    X(input, "")                                                                                                       \
    X(execve, "s")                                                                                                     \
    X(ioctl, "fx")                                                                                                     \
    X(sleep, "d")                                                                                                      \
    X(usleep, "d")                                                                                                     \
    X(select, "T")                                                                                                     \
    X(poll, "d")                                                                                                       \
    X(settimeofday, "T")                                                                                               \
    X(sethostname, "s")                                                                                                \
    X(reboot, "x")                                                                                                     \
    X(mount, "sssx")                                                                                                   \
    X(umount2, "sx")                                                                                                   \
    X(swapon, "sx")                                                                                                    \
    X(swapoff, "s")                                                                                                    \
    X(finit_module, "fs")                                                                                              \
    X(delete_module, "sx")                                                                                             \
    X(open, "sx")                                                                                                      \
    X(fopen, "ss")                                                                                                     \
    X(read, "fd")                                                                                                      \
    X(write, "fd")                                                                                                     \
    X(fsync, "f")                                                                                                      \
    X(flock, "fx")                                                                                                     \
    X(rename, "ss")                                                                                                    \
    X(unlink, "s")                                                                                                     \
    X(mkdir, "so")                                                                                                     \
    X(chmod, "so")                                                                                                     \
    X(mknod, "sox")                                                                                                    \
    X(fork, "")                                                                                                        \
    X(kill, "dd")                                                                                                      \
    X(socket, "ddd")                                                                                                   \
    X(bind, "f")                                                                                                       \
    X(semget, "xdo")                                                                                                   \
    X(semop, "d")                                                                                                      \
    X(sysinfo, "")                                                                                                     \
    X(statvfs, "s")

enum box_call {
#define BOX_CALL_NUMBER(name, form) BOX_##name,
    BOX_CALLS(BOX_CALL_NUMBER)
#undef BOX_CALL_NUMBER
        BOX_CALL_COUNT
};
#define BOX_FIRST_WATCHED BOX_open

struct box_shared {
    uint64_t watched;      /* bit of each call */
    uint32_t sleep_factor; /* sleeps take 1/factor of their time */
};

#define BOX_NUMBERS 6
#define BOX_TEXTS 3

struct box_ask {
    uint32_t call; /* enum box_call */
    int32_t pid;
    int64_t number[BOX_NUMBERS];
    uint64_t address;               /* where the call wants its result, if it does */
    uint32_t text_bytes[BOX_TEXTS]; /* of the texts that follow, without NUL */
};

enum box_step {
    BOX_RETURN, /* ends: return `result`, or fail with `error`; a stand-in exits with `result` */
    BOX_REAL,   /* ends: make the true call */
    BOX_TELL,   /* make the true call, send its int64 result, negative errno on failure; BOX_RETURN ends it */
    BOX_MOUNT,  /* mount the directory whose path follows instead of the source, then as BOX_TELL */
    BOX_PEEK,   /* send `bytes` bytes from `address`; an int64 0 or negative errno goes before them */
    BOX_POKE,   /* what follows goes to `address` */
    BOX_OUTPUT, /* stand-in: write what follows to descriptor `result` */
    BOX_INPUT,  /* stand-in, ends: read standard input to its end and send it as call "input" with number `result` */
    BOX_EXEC,   /* stand-in, ends: become the program whose path follows */
    BOX_WAIT,   /* stand-in: for `result` milliseconds; negative: until a signal ends it */
    BOX_KILL    /* stand-in, ends: by signal `result` */
};

struct box_answer {
    uint32_t step; /* enum box_step */
    int32_t error; /* errno value */
    int64_t result;
    uint64_t address;
    uint64_t bytes;
};

#endif
