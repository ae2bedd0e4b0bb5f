/*
 * The board that stands in for the appliance's hardware behind /dev/norvbios: LEDs, buzzer, buttons, clock, fans,
 * sensors, pins, registers, micro-controller, front panel and the queue of hardware events.
 *
 * All state is one `struct board` without pointers, so it may lie in memory that processes share or be copied as a
 * whole. Nothing here allocates, locks, sleeps or reads a clock: the caller keeps one call at a time on one board and
 * passes the time. The same units build into a program, a preloaded library and a Linux kernel module (board_port.h).
 *
 * Functions that can fail return 0 or more, or a negative errno value.
 */
#ifndef NORV_PLATFORM_BOARD_H
#define NORV_PLATFORM_BOARD_H

#include "board_port.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BOARD_DISKS 32        /* disk LEDs */
#define BOARD_FANS 8          /* fans */
#define BOARD_CORES 3         /* cores with a sensor: what a temperature record holds */
#define BOARD_PINS 256        /* GPIO pins */
#define BOARD_REGISTERS 256   /* CPLD bytes */
#define BOARD_WORDS 64        /* words of memory that hold something */
#define BOARD_EVENTS 64       /* events that may wait */
#define BOARD_MICRO_BYTES 64  /* bytes of the micro-controller that may wait */
#define BOARD_MICRO_REPLIES 8 /* texts that the micro-controller answers */
#define BOARD_SCHEDULES 100   /* power-on times of a schedule record */
#define BOARD_GROUPS 2        /* interface groups of the disk interface check */
#define BOARD_REQUESTS 33     /* requests that a board answers */
#define BOARD_NOTES 512       /* lines that the transcript keeps */
#define BOARD_NOTE_ROOM 120   /* bytes of one line with its NUL; longer ones are cut */

/* The largest record of a request, and the longest text that one points to. Room for both is enough for any request. */
#define BOARD_RECORD_MAX 308
#define BOARD_TAIL_MAX 64
#define BOARD_REQUEST_ROOM (BOARD_RECORD_MAX + BOARD_TAIL_MAX)

enum board_lamp {
    BOARD_LAMP_POWER,
    BOARD_LAMP_STATUS,
    BOARD_LAMP_ALERT,
    BOARD_LAMP_USB,
    BOARD_LAMP_ESATA,
    BOARD_LAMP_MEMTEST,
    BOARD_LAMP_PANEL_STATUS, /* the front panel's own copies of two lamps */
    BOARD_LAMP_PANEL_ALERT,
    BOARD_LAMPS
};

enum board_light {
    BOARD_LIGHT_OFF,
    BOARD_LIGHT_ON,
    BOARD_LIGHT_BLINKING,
    BOARD_LIGHT_GREEN,
    BOARD_LIGHT_GREEN_BLINKING,
    BOARD_LIGHT_ORANGE,
    BOARD_LIGHT_ORANGE_BLINKING,
    BOARD_LIGHTS
};

enum board_disk_light { BOARD_DISK_OFF, BOARD_DISK_NORMAL, BOARD_DISK_FAULT, BOARD_DISK_LIGHTS };

/* Switches that the micro-controller and the driver keep. */
enum board_switch {
    BOARD_SWITCH_AC_RECOVERY,
    BOARD_SWITCH_SCHEDULE,
    BOARD_SWITCH_FAN_CHECKER,
    BOARD_SWITCH_WAKE_ON_LAN,
    BOARD_SWITCH_MICRO_LOG,
    BOARD_SWITCH_MICRO_VERSION,
    BOARD_SWITCH_MANUFACTURING,
    BOARD_SWITCH_DISK_MASK,
    BOARD_SWITCH_STARTED,     /* the daemon has said that it runs */
    BOARD_SWITCH_POWER_GRANT, /* the micro-controller may cut the power */
    BOARD_SWITCH_RESET,       /* the micro-controller was told to reset the system */
    BOARD_SWITCHES
};

enum board_button { BOARD_BUTTON_POWER, BOARD_BUTTON_RESET, BOARD_BUTTON_COPY, BOARD_BUTTONS };

enum board_direction {
    BOARD_VALUE, /* the argument is the value itself */
    BOARD_TEXT,  /* the argument points to a NUL-terminated text of at most `bytes` bytes with its NUL */
    BOARD_IN,    /* the argument points to a record that is read */
    BOARD_OUT,   /* ... that is filled */
    BOARD_IN_OUT
};

/* One request that is being carried out. */
struct board_call {
    struct board *board;
    int64_t now_s;
    void *record; /* all there, at any alignment */
    uint64_t value;
};

/*
 * How one request travels. The size inside a request's code is not always that of its record: `bytes` is what is
 * copied. A record may point to a text: the pointer stands at `pointer_at` (8 bytes; 0 when the record has none), the
 * length of its text at `length_at` (int32). Whoever carries the request puts that text, at most BOARD_TAIL_MAX bytes,
 * right behind the record. board_ioctl does all of this.
 */
struct board_request_info { /* NOLINT(clang-analyzer-optin.performance.Padding): in the order of reading */
    uint32_t code;          /* as given to ioctl */
    uint16_t bytes;
    uint8_t direction; /* enum board_direction */
    uint8_t pointer_at, length_at;
    const char *name;                                /* as in scenario and transcript, one word */
    const char *fields;                              /* how the transcript shows the record, see board_transcript.c */
    int (*carry_out)(const struct board_call *call); /* NULL: the record is the board's state at `state_at` */
    uint16_t state_at;
};

struct board_word {
    uint32_t address, value;
};

/* Record of the clock requests, and of the power-on schedule: three bytes per time. */
struct board_time {
    uint8_t second, minute, hour, week_day, month_day, month, year; /* month from 0, year since 1900 */
};
struct board_schedule {
    int32_t count, enabled;
    uint8_t times[BOARD_SCHEDULES][3]; /* minute, hour, mask of week days */
};

/* Record of the disk interface check: `incompatible[i]` is 1 when disk i + 1 does not suit the group. */
struct board_interfaces {
    int32_t count;
    struct {
        uint8_t incompatible[64];
        char name[32];
    } groups[BOARD_GROUPS];
};

/* Record of the processor's temperatures. */
struct board_cores {
    int32_t count;
    int32_t celsius[BOARD_CORES];
};

/* Record of the two requests that hear the micro-controller: text in, reply out, each NUL-padded. */
struct board_micro_message {
    char text[8];
    int32_t length; /* in: bytes of the reply that are wanted; out: bytes that came */
};

struct board_micro_reply {
    char text[8], reply[8]; /* NUL-padded; a full one has no NUL; no text: free row */
};

struct board_failure {
    int32_t error; /* errno value; 0: none */
    int32_t after; /* requests that still pass before it */
    int32_t count; /* requests that fail then; -1: all */
};

struct board {
    uint8_t lamps[BOARD_LAMPS];       /* enum board_light */
    uint8_t disks[BOARD_DISKS];       /* enum board_disk_light */
    uint8_t switches[BOARD_SWITCHES]; /* 0 or 1 */
    int32_t disk_count;               /* disk LEDs that the board has */
    uint32_t beeps_long, beeps_short;
    int32_t pwm_duty, pwm_frequency; /* two digits as sent; -1: never set */

    int64_t clock_offset_s; /* clock less the caller's time */
    struct board_schedule schedule;

    int32_t fan_count;
    int32_t fan_rpm[BOARD_FANS]; /* 0: the fan stands still */
    int32_t temperature;         /* degrees Celsius */
    struct board_cores cores;
    int32_t module_type[3]; /* fan type first */

    uint32_t pins[BOARD_PINS];
    uint8_t registers[BOARD_REGISTERS];
    int32_t cpld[2];
    struct board_word words[BOARD_WORDS];
    uint32_t word_count;

    int32_t event_source[2];
    int32_t status_pair[2];
    int32_t events[BOARD_EVENTS];
    uint32_t event_first, event_count;
    uint32_t presses_told[BOARD_BUTTONS]; /* requests that told of a press */
    int32_t button_events[BOARD_BUTTONS]; /* event that such a request raises; 0: none */
    uint8_t micro_bytes[BOARD_MICRO_BYTES];
    uint32_t micro_first, micro_count;
    struct board_micro_reply micro_replies[BOARD_MICRO_REPLIES];

    struct board_interfaces interfaces;

    char panel_lines[2][50];
    char panel_input[104]; /* a panel command that has not ended yet */
    uint32_t panel_length;

    struct board_failure failures[BOARD_REQUESTS]; /* in the order of the request table */

    char notes[BOARD_NOTES][BOARD_NOTE_ROOM];
    uint64_t note_count; /* lines ever written */
};

/* How a carrier reaches the memory of the program that asks. Both return 0 or a negative errno value. */
struct board_memory {
    int (*in)(void *context, void *to, uint64_t from, size_t bytes);
    int (*out)(void *context, uint64_t to, const void *from, size_t bytes);
    void *context;
};

/*
 * A board as it leaves the factory: lamps off, two running fans, four disk LEDs, status pair 1 and 1, a
 * micro-controller that tells its version, and a clock that stands at 2000-01-01 00:00:00 when `now_s` is.
 */
void board_init(struct board *board, int64_t now_s);

/*
 * Carries out one request of a program and notes it in the transcript.
 *   now_s     seconds of a clock that runs evenly and is one for all callers of this board
 *   request   the whole code as given to ioctl; one that the board does not know is -ENOTTY
 *   argument  the third argument of ioctl: a value or an address in the program's memory
 * Returns 0, or a negative errno value with the program's memory untouched.
 */
long board_ioctl(struct board *board, int64_t now_s, uint32_t request, uint64_t argument,
                 const struct board_memory *memory);

/*
 * The same for a caller that holds the record: `bytes` has `room` bytes, the record with its text behind it, changed in
 * place. Requests whose argument is a value take it from `value` and no record. Too little room is -EINVAL.
 */
int board_request(struct board *board, int64_t now_s, uint32_t request, void *bytes, size_t room, uint64_t value);

/* The row of a request by its whole code, or NULL. Rows stand in one array of BOARD_REQUESTS. */
const struct board_request_info *board_request_find(uint32_t request);
extern const struct board_request_info board_requests[BOARD_REQUESTS];

/* Queues a hardware event. Returns 0; -ENOSPC when BOARD_EVENTS wait already. */
int board_event_raise(struct board *board, int32_t event);

/* How many events wait: the device is readable when it is not 0. */
uint32_t board_event_pending(const struct board *board);

/* A press of a button as the micro-controller tells it: one byte to be read. Returns 0 or -ENOSPC. */
int board_button_press(struct board *board, enum board_button button);

/* Takes bytes that were written to the front panel's line. Any cut of the stream will do. */
void board_panel_write(struct board *board, const void *bytes, size_t count);

/*
 * Scenario text sets the state; docs/board.md lists its words. A line takes effect at once; the first bad one ends the
 * load, and those before it stay in force. `error` gets what is wrong, of a load with "line N: " before it, or "".
 * Returns 0; -EINVAL for a bad line, -ENOSPC for one that finds no room.
 */
int board_scenario_line(struct board *board, int64_t now_s, const char *line, char *error, size_t error_room);
int board_scenario_load(struct board *board, int64_t now_s, const char *text, size_t length, char *error,
                        size_t error_room);

/*
 * Copies the next line of the transcript, without newline, cut to `room`: "0xc0044bcd gpio_read 4 -> 1", code, name,
 * what came in, what went out, and " = -EIO" when the request failed. `cursor` counts lines since the board began;
 * start with 0. Lines that the ring has lost are told by one line "... N lines lost". Returns 1; 0 when there is no
 * further line.
 */
int board_transcript_next(const struct board *board, uint64_t *cursor, char *line, size_t room);

/* Adds a line to the transcript. */
void board_note(struct board *board, const char *format, ...) BOARD_PRINTF(2, 3);

/* Draws the board as text of some 20 lines, cut to `room`. Returns the length of the text without its NUL. */
size_t board_draw(const struct board *board, int64_t now_s, char *drawing, size_t room);

#ifdef __cplusplus
}
#endif
#endif
