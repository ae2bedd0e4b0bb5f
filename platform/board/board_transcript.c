#include "board_internal.h"

struct board_text board_text_begin(char *start, size_t room)
{
    const struct board_text text = {start, room, 0};

    if (room > 0)
        start[0] = '\0';
    return text;
}

static void text_add_list(struct board_text *text, const char *format, va_list list)
{
    const size_t left = text->room - text->length;
    const int added = left > 0 ? vsnprintf(text->start + text->length, left, format, list) : 0;

    if (added > 0)
        text->length += (size_t)added < left ? (size_t)added : left - 1;
}

void board_text_add(struct board_text *text, const char *format, ...)
{
    va_list list;

    va_start(list, format);
    text_add_list(text, format, list);
    va_end(list);
}

void board_text_quote(struct board_text *text, const char *bytes, size_t count)
{
    board_text_add(text, "\"");
    for (size_t i = 0; i < count && bytes[i] != '\0'; i++) {
        if (bytes[i] == '"' || bytes[i] == '\\')
            board_text_add(text, "\\%c", bytes[i]);
        else if (bytes[i] >= ' ' && bytes[i] <= '~')
            board_text_add(text, "%c", bytes[i]);
        else
            board_text_add(text, "\\x%02x", (unsigned char)bytes[i]);
    }
    board_text_add(text, "\"");
}

#define ERROR(name)                                                                                                    \
    {                                                                                                                  \
        name, #name                                                                                                    \
    }
static const struct {
    int error;
    const char *name;
} errors[] = {
    ERROR(EPERM),  ERROR(EINTR),  ERROR(EIO),    ERROR(ENXIO),  ERROR(EAGAIN),  ERROR(ENOMEM),
    ERROR(EACCES), ERROR(EFAULT), ERROR(EBUSY),  ERROR(ENODEV), ERROR(EINVAL),  ERROR(ENOTTY),
    ERROR(ENOSPC), ERROR(ERANGE), ERROR(ENOSYS), ERROR(EPROTO), ERROR(ENODATA), ERROR(ETIMEDOUT),
};
#define ERROR_COUNT (sizeof errors / sizeof errors[0])

const char *board_error_name(int error)
{
    for (size_t i = 0; i < ERROR_COUNT; i++)
        if (errors[i].error == error)
            return errors[i].name;
    return NULL;
}

int board_error_find(const char *name)
{
    for (size_t i = 0; i < ERROR_COUNT; i++)
        if (strcmp(errors[i].name, name) == 0)
            return errors[i].error;
    return 0;
}

static void times_add(struct board_text *text, const unsigned char *schedule)
{
    const unsigned char *entry = schedule + offsetof(struct board_schedule, times);
    int32_t count;

    memcpy(&count, schedule, sizeof count);
    for (int32_t i = 0; i < count && i < BOARD_SCHEDULES; i++, entry += 3)
        board_text_add(text, " 0x%02x%02x%02x", entry[2], entry[1], entry[0]);
}

/* The name of an interface group and the disks that do not suit it. */
static void group_add(struct board_text *text, const unsigned char *group)
{
    const size_t disks = sizeof((struct board_interfaces *)NULL)->groups[0].incompatible;
    const size_t name_room = sizeof((struct board_interfaces *)NULL)->groups[0].name;

    if (group[disks] == '\0')
        return;
    board_text_add(text, " ");
    board_text_quote(text, (const char *)group + disks, name_room);
    for (size_t i = 0; i < disks; i++)
        if (group[i] != 0)
            board_text_add(text, " %d", (int)i + 1);
}

/*
 * Adds the fields of a record up to a '>' or the end of `fields`. One letter per field:
 *   d x  int32 as decimal, as hexadecimal     u b  byte as decimal, as hexadecimal     q  int64 as hexadecimal
 *   - _  int32 or byte that is not shown      n    text up to the record's end         t  text of 8 bytes
 *   p    the text that the record points to; its 8-byte pointer and 4 bytes of padding are stepped over with "-"
 *   s    times of the power-on schedule       i    interface group                     v  the value of the request
 */
static void fields_add(struct board_text *text, const char *fields, const unsigned char *record, size_t record_bytes,
                       uint64_t value)
{
    const unsigned char *at = record;
    int32_t word;
    int64_t long_word;

    for (; *fields != '\0' && *fields != '>'; fields++) {
        switch (*fields) {
        case 'd':
        case 'x':
            memcpy(&word, at, sizeof word);
            board_text_add(text, *fields == 'd' ? " %d" : " 0x%x", word);
            at += sizeof word;
            break;
        case '-':
            at += sizeof word;
            break;
        case 'q':
            memcpy(&long_word, at, sizeof long_word);
            board_text_add(text, " 0x%llx", (unsigned long long)long_word);
            at += sizeof long_word;
            break;
        case 'u':
            board_text_add(text, " %u", *at++);
            break;
        case 'b':
            board_text_add(text, " 0x%02x", *at++);
            break;
        case '_':
            at++;
            break;
        case 't':
            board_text_add(text, " ");
            board_text_quote(text, (const char *)at, 8);
            at += 8;
            break;
        case 'n':
            board_text_add(text, " ");
            board_text_quote(text, (const char *)at, record_bytes - (size_t)(at - record));
            break;
        case 'p':
            board_text_add(text, " ");
            board_text_quote(text, (const char *)record + record_bytes, BOARD_TAIL_MAX);
            break;
        case 's':
            times_add(text, record);
            break;
        case 'i':
            group_add(text, at);
            at += sizeof((struct board_interfaces *)NULL)->groups[0];
            break;
        default:
            board_text_add(text, " %llu", (unsigned long long)value);
            break;
        }
    }
}

void board_text_request(struct board_text *text, const struct board_request_info *row, uint32_t code,
                        const void *before, const void *after, uint64_t value, int result)
{
    const char *error = board_error_name(-result);

    board_text_add(text, "0x%08x %s", code, row != NULL ? row->name : "unknown");
    if (row != NULL) {
        const char *out = row->fields;

        fields_add(text, row->fields, before, row->bytes, value);
        while (*out != '\0' && *out != '>')
            out++;
        if (result == 0 && *out == '>') {
            board_text_add(text, " ->");
            fields_add(text, out + 1, after, row->bytes, value);
        }
    }
    if (result != 0 && error != NULL)
        board_text_add(text, " = -%s", error);
    else if (result != 0)
        board_text_add(text, " = %d", result);
}

static char *note_next(struct board *board)
{
    return board->notes[board->note_count++ % BOARD_NOTES];
}

void board_note(struct board *board, const char *format, ...)
{
    struct board_text text = board_text_begin(note_next(board), BOARD_NOTE_ROOM);
    va_list list;

    va_start(list, format);
    text_add_list(&text, format, list);
    va_end(list);
}

void board_note_request(struct board *board, const struct board_request_info *row, uint32_t code, const void *before,
                        const void *after, uint64_t value, int result)
{
    struct board_text text = board_text_begin(note_next(board), BOARD_NOTE_ROOM);

    board_text_request(&text, row, code, before, after, value, result);
}

int board_transcript_next(const struct board *board, uint64_t *cursor, char *line, size_t room)
{
    const uint64_t first = board->note_count > BOARD_NOTES ? board->note_count - BOARD_NOTES : 0;
    struct board_text text = board_text_begin(line, room);

    if (*cursor < first) {
        board_text_add(&text, "... %llu lines lost", (unsigned long long)(first - *cursor));
        *cursor = first;
        return 1;
    }
    if (*cursor >= board->note_count)
        return 0;
    board_text_add(&text, "%s", board->notes[*cursor % BOARD_NOTES]);
    ++*cursor;
    return 1;
}
