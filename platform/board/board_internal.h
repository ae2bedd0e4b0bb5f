/* What the units of the board share among themselves. */
#ifndef NORV_PLATFORM_BOARD_INTERNAL_H
#define NORV_PLATFORM_BOARD_INTERNAL_H

#include "board.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Words of the scenario and of the drawing, in the order of the enums. */
extern const char *const board_lamp_names[BOARD_LAMPS];
extern const char *const board_light_names[BOARD_LIGHTS];
extern const char *const board_disk_light_names[BOARD_DISK_LIGHTS];
extern const char *const board_switch_names[BOARD_SWITCHES];
extern const char *const board_button_names[BOARD_BUTTONS];

/* A text under construction; what does not fit is left out. */
struct board_text {
    char *start;
    size_t room, length;
};
struct board_text board_text_begin(char *start, size_t room);
void board_text_add(struct board_text *text, const char *format, ...) BOARD_PRINTF(2, 3);
/* Adds `bytes` in quotes up to their first NUL, with \xNN for what is not printable. */
void board_text_quote(struct board_text *text, const char *bytes, size_t count);

/* Name and value of an errno value: "EIO". NULL and 0 when there is none in the table. */
const char *board_error_name(int error);
int board_error_find(const char *name);

/* Seconds since 1970 and the record of the clock. The second returns -EINVAL for a time that does not exist. */
void board_time_split(int64_t seconds, struct board_time *time);
int board_time_join(const struct board_time *time, int64_t *seconds);

/* What a control code, a text to the micro-controller or a byte to the front panel does. */
int board_control(struct board *board, int64_t control, char data);
void board_micro_text(struct board *board, const char *text);
void board_panel_light(struct board *board, char byte);
int board_micro_byte_add(struct board *board, uint8_t byte);

/* Memory words; one that was never set is 0. Setting returns 0 or -ENOSPC. */
uint32_t board_memory_get(const struct board *board, uint32_t address);
int board_memory_set(struct board *board, uint32_t address, uint32_t value);

/*
 * A request as one line, or as a line of the transcript: its record as it came and as it went, both with room for the
 * text that it points to. `row` is NULL for a code that no row has.
 */
void board_text_request(struct board_text *text, const struct board_request_info *row, uint32_t code,
                        const void *before, const void *after, uint64_t value, int result);
void board_note_request(struct board *board, const struct board_request_info *row, uint32_t code, const void *before,
                        const void *after, uint64_t value, int result);

#ifdef __cplusplus
}
#endif
#endif
