/*
 * The front panel: two lines of text and two lamps on a serial line.
 *
 *   "-A#first#second#"  the two lines, padded with NULs to 102 bytes; without the last '#' when they were cut to fit
 *   "-Xy"               a command, known by its two letters
 *   one byte            a lamp
 */
#include "board_internal.h"

#define RECORD_BYTES 102

static void line_set(char *line, size_t room, const char *text, size_t count)
{
    memset(line, 0, room);
    memcpy(line, text, count < room ? count : room - 1);
}

static void lines_show(struct board *board)
{
    const char *first = board->panel_input + 3; /* behind "-A#" */
    const char *end = board->panel_input + board->panel_length;
    const char *second = first;
    char note[BOARD_NOTE_ROOM];
    struct board_text text = board_text_begin(note, sizeof note);

    while (second < end && *second != '#')
        second++;
    line_set(board->panel_lines[0], sizeof board->panel_lines[0], first, (size_t)(second - first));
    first = second < end ? second + 1 : end;
    for (second = first; second < end && *second != '#';)
        second++;
    line_set(board->panel_lines[1], sizeof board->panel_lines[1], first, (size_t)(second - first));
    for (int i = 0; i < 2; i++) {
        board_text_add(&text, " ");
        board_text_quote(&text, board->panel_lines[i], sizeof board->panel_lines[i]);
    }
    board_note(board, "panel%s", note);
}

/* Whether the input so far is a whole record of lines: three '#', or cut by the NUL or the record's end. */
static int lines_are_whole(const struct board *board, char byte)
{
    int marks = 0;

    for (uint32_t i = 0; i < board->panel_length; i++)
        marks += board->panel_input[i] == '#';
    return marks == 3 || byte == '\0' || board->panel_length == RECORD_BYTES;
}

static void byte_take(struct board *board, char byte)
{
    if (board->panel_length == 0 && byte != '-') {
        if (byte != '\0') { /* padding */
            board_panel_light(board, byte);
            board_note(board, "panel 0x%02x", (unsigned char)byte);
        }
        return;
    }
    if (byte != '\0')
        board->panel_input[board->panel_length++] = byte;
    if (board->panel_length >= 3 && memcmp(board->panel_input, "-A#", 3) == 0) {
        if (!lines_are_whole(board, byte))
            return;
        lines_show(board);
    } else if (board->panel_length == 3) {
        board_note(board, "panel %.3s", board->panel_input);
    } else if (byte != '\0') {
        return;
    }
    board->panel_length = 0;
}

void board_panel_write(struct board *board, const void *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++)
        byte_take(board, ((const char *)bytes)[i]);
}
