#include "board_internal.h"

/* Records come from foreign memory, at any alignment: they are copied, never laid over. */

static int control(const struct board_call *call)
{
    struct {
        int64_t code, length;
        char data[128];
    } in;

    memcpy(&in, call->record, sizeof in);
    return board_control(call->board, in.code, in.length > 0 ? in.data[0] : '\0');
}

static int event_get(const struct board_call *call)
{
    if (call->board->event_count == 0)
        return -EAGAIN;
    memcpy(call->record, &call->board->events[call->board->event_first], sizeof(int32_t));
    call->board->event_first = (call->board->event_first + 1) % BOARD_EVENTS;
    call->board->event_count--;
    return 0;
}

static int rtc_read(const struct board_call *call)
{
    struct board_time time;

    board_time_split(call->now_s + call->board->clock_offset_s, &time);
    memcpy(call->record, &time, sizeof time);
    return 0;
}

static int rtc_write(const struct board_call *call)
{
    struct board_time time;
    int64_t seconds;

    memcpy(&time, call->record, sizeof time);
    if (board_time_join(&time, &seconds) != 0)
        return -EINVAL;
    call->board->clock_offset_s = seconds - call->now_s;
    return 0;
}

static int button(struct board *board, enum board_button which)
{
    if (board->button_events[which] != 0 && board_event_raise(board, board->button_events[which]) != 0)
        return -ENOSPC;
    board->presses_told[which]++;
    return 0;
}

static int button_power(const struct board_call *call)
{
    return button(call->board, BOARD_BUTTON_POWER);
}

static int button_reset(const struct board_call *call)
{
    return button(call->board, BOARD_BUTTON_RESET);
}

static int button_copy(const struct board_call *call)
{
    return button(call->board, BOARD_BUTTON_COPY);
}

static int disk_led(const struct board_call *call)
{
    int32_t words[2]; /* disk from 1, light */

    memcpy(words, call->record, sizeof words);
    if (words[0] < 1 || words[0] > BOARD_DISKS || words[1] < 0 || words[1] >= BOARD_DISK_LIGHTS)
        return -EINVAL;
    call->board->disks[words[0] - 1] = (uint8_t)words[1];
    return 0;
}

static int fan_status(const struct board_call *call)
{
    int32_t words[3]; /* fan from 1; 1 when it turns; its speed */

    memcpy(words, call->record, sizeof words);
    if (words[0] < 1 || words[0] > call->board->fan_count)
        return -EINVAL;
    words[2] = call->board->fan_rpm[words[0] - 1];
    words[1] = words[2] > 0;
    memcpy(call->record, words, sizeof words);
    return 0;
}

static int schedule_write(const struct board_call *call)
{
    int32_t count;

    memcpy(&count, call->record, sizeof count);
    if (count < 0 || count > BOARD_SCHEDULES)
        return -EINVAL;
    memcpy(&call->board->schedule, call->record, sizeof call->board->schedule);
    return 0;
}

static int cpld_byte_read(const struct board_call *call)
{
    uint8_t *bytes = call->record; /* offset, value */

    bytes[1] = call->board->registers[bytes[0]];
    return 0;
}

static int cpld_byte_write(const struct board_call *call)
{
    const uint8_t *bytes = call->record;

    call->board->registers[bytes[0]] = bytes[1];
    return 0;
}

static int micro_write(const struct board_call *call)
{
    board_micro_text(call->board, call->record);
    return 0;
}

static int start(const struct board_call *call)
{
    call->board->switches[BOARD_SWITCH_STARTED] = call->value != 0;
    return 0;
}

static int disk_led_mask(const struct board_call *call)
{
    call->board->switches[BOARD_SWITCH_DISK_MASK] = call->value != 0;
    return 0;
}

static int memory_write(const struct board_call *call)
{
    uint32_t words[2]; /* address, value */

    memcpy(words, call->record, sizeof words);
    return board_memory_set(call->board, words[0], words[1]);
}

static int memory_read(const struct board_call *call)
{
    uint32_t words[2];

    memcpy(words, call->record, sizeof words);
    words[1] = board_memory_get(call->board, words[0]);
    memcpy(call->record, words, sizeof words);
    return 0;
}

static int micro_ask(const struct board_call *call)
{
    struct board_micro_message message;

    memcpy(&message, call->record, sizeof message);
    if (message.length < 0 || message.length > (int32_t)sizeof message.text)
        return -EINVAL;
    for (size_t i = 0; i < BOARD_MICRO_REPLIES; i++) {
        const struct board_micro_reply *reply = &call->board->micro_replies[i];
        char text[sizeof message.text + 1] = "";

        if (reply->text[0] == '\0' || strncmp(reply->text, message.text, sizeof message.text) != 0)
            continue;
        memcpy(text, message.text, sizeof message.text);
        board_micro_text(call->board, text);
        memset(message.text, 0, sizeof message.text);
        message.length = (int32_t)strnlen(reply->reply, (size_t)message.length);
        memcpy(message.text, reply->reply, (size_t)message.length);
        memcpy(call->record, &message, sizeof message);
        return 0;
    }
    return -ETIMEDOUT; /* nobody answers on the line */
}

static int micro_read(const struct board_call *call)
{
    struct board_micro_message message;
    int32_t count = 0;

    memcpy(&message, call->record, sizeof message);
    if (message.length < 0 || message.length > (int32_t)sizeof message.text)
        return -EINVAL;
    memset(message.text, 0, sizeof message.text);
    for (; count < message.length && call->board->micro_count > 0; call->board->micro_count--) {
        message.text[count++] = (char)call->board->micro_bytes[call->board->micro_first];
        call->board->micro_first = (call->board->micro_first + 1) % BOARD_MICRO_BYTES;
    }
    message.length = count;
    memcpy(call->record, &message, sizeof message);
    return 0;
}

static int switch_set(struct board *board, enum board_switch which, const void *record)
{
    int32_t on;

    memcpy(&on, record, sizeof on);
    if (on != 0 && on != 1)
        return -EINVAL;
    board->switches[which] = (uint8_t)on;
    return 0;
}

static int micro_log(const struct board_call *call)
{
    return switch_set(call->board, BOARD_SWITCH_MICRO_LOG, call->record);
}

static int manutil_mode(const struct board_call *call)
{
    return switch_set(call->board, BOARD_SWITCH_MANUFACTURING, call->record);
}

static int gpio_read(const struct board_call *call)
{
    uint32_t words[2]; /* pin, value */

    memcpy(words, call->record, sizeof words);
    if (words[0] >= BOARD_PINS)
        return -EINVAL;
    words[1] = call->board->pins[words[0]];
    memcpy(call->record, words, sizeof words);
    return 0;
}

static int gpio_write(const struct board_call *call)
{
    uint32_t words[2];

    memcpy(words, call->record, sizeof words);
    if (words[0] >= BOARD_PINS)
        return -EINVAL;
    call->board->pins[words[0]] = words[1];
    return 0;
}

#define STATE(member) NULL, offsetof(struct board, member)

/* clang-format off */
const struct board_request_info board_requests[BOARD_REQUESTS] = {
    {0xc0904b01, 144, BOARD_IN,     0, 0, "control",         "qqn",       control, 0},
    {0xc0044b02,   4, BOARD_OUT,    0, 0, "event_get",       ">x",        event_get, 0},
    {0xc0074b05,   7, BOARD_OUT,    0, 0, "rtc_read",        ">uuuuuuu",  rtc_read, 0},
    {0xc0074b06,   7, BOARD_IN,     0, 0, "rtc_write",       "uuuuuuu",   rtc_write, 0},
    {0xc0044b07,   4, BOARD_IN_OUT, 0, 0, "button_power",    "",          button_power, 0},
    {0xc0044b08,   4, BOARD_IN_OUT, 0, 0, "button_reset",    "",          button_reset, 0},
    {0xc0044b09,   4, BOARD_IN_OUT, 0, 0, "button_copy",     "",          button_copy, 0},
    {0xc0184b0a,  24, BOARD_IN,    16, 8, "disk_led",        "ddd-p",     disk_led, 0},
    {0xc00c4b0b,  12, BOARD_IN_OUT, 0, 0, "fan_status",      "d>-dd",     fan_status, 0},
    {0xc0044b0d,   4, BOARD_OUT,    0, 0, "cpld_first",      ">x",        STATE(cpld[0])},
    {0xc0044b0e,   4, BOARD_OUT,    0, 0, "cpld_second",     ">x",        STATE(cpld[1])},
    {0xc0044b10,   4, BOARD_OUT,    0, 0, "temperature",     ">d",        STATE(temperature)},
    {0xc1344b12, 308, BOARD_OUT,    0, 0, "schedule_read",   ">dds",      STATE(schedule)},
    {0xc1344b13, 308, BOARD_IN,     0, 0, "schedule_write",  "dds",       schedule_write, 0},
    {0xc0024b14,   2, BOARD_IN_OUT, 0, 0, "cpld_byte_read",  "b>_b",      cpld_byte_read, 0},
    {0xc0024b15,   2, BOARD_IN,     0, 0, "cpld_byte_write", "bb",        cpld_byte_write, 0},
    {0xc0084b17,   8, BOARD_IN,     0, 0, "event_source",    "dd",        STATE(event_source)},
    {0xc0044b18,   4, BOARD_OUT,    0, 0, "fan_count",       ">d",        STATE(fan_count)},
    {0xc0084b19,   8, BOARD_OUT,    0, 0, "status_pair",     ">dd",       STATE(status_pair)},
    {0xc00c4b1e,  12, BOARD_OUT,    0, 0, "module_type",     ">ddd",      STATE(module_type)},
    {0xc0014b21,  64, BOARD_TEXT,   0, 0, "micro_write",     "n",         micro_write, 0},
    {0xc0104b22,  16, BOARD_OUT,    0, 0, "cpu_temperature", ">dddd",     STATE(cores)},
    {0xc0044b24,   0, BOARD_VALUE,  0, 0, "start",           "v",         start, 0},
    {0xc0044b25,   0, BOARD_VALUE,  0, 0, "disk_led_mask",   "v",         disk_led_mask, 0},
    {0xc0084b2b,   8, BOARD_IN,     0, 0, "memory_write",    "xx",        memory_write, 0},
    {0xc0084b2c,   8, BOARD_IN_OUT, 0, 0, "memory_read",     "x>-x",      memory_read, 0},
    {0xc0014b2f,  12, BOARD_IN_OUT, 0, 0, "micro_ask",       "td>td",     micro_ask, 0},
    {0xc0014b30,  12, BOARD_IN_OUT, 0, 0, "micro_read",      "--d>td",    micro_read, 0},
    {0xc0014b31,   4, BOARD_IN,     0, 0, "micro_log",       "d",         micro_log, 0},
    {0xc0044b80,   4, BOARD_IN,     0, 0, "manutil_mode",    "d",         manutil_mode, 0},
    {0xc0044bcd,   8, BOARD_IN_OUT, 0, 0, "gpio_read",       "d>-d",      gpio_read, 0},
    {0xc0044bce,   8, BOARD_IN,     0, 0, "gpio_write",      "dd",        gpio_write, 0},
    {0xc0c44bdc, 196, BOARD_OUT,    0, 0, "disk_interfaces", ">dii",      STATE(interfaces)},
};
/* clang-format on */

const struct board_request_info *board_request_find(uint32_t request)
{
    for (size_t i = 0; i < BOARD_REQUESTS; i++)
        if (board_requests[i].code == request)
            return &board_requests[i];
    return NULL;
}

/* The failure that a scenario has ordered for this request, if its turn has come: 0 or a negative errno value. */
static int failure_take(struct board *board, const struct board_request_info *row)
{
    struct board_failure *failure = &board->failures[row - board_requests];

    if (failure->error == 0 || failure->count == 0)
        return 0;
    if (failure->after > 0) {
        failure->after--;
        return 0;
    }
    if (failure->count > 0)
        failure->count--;
    return -failure->error;
}

/* Length of the text that a record points to, as much of it as is carried. */
static size_t tail_length(const struct board_request_info *row, const unsigned char *record)
{
    int32_t length;
    uint64_t address;

    if (row->pointer_at == 0)
        return 0;
    memcpy(&length, record + row->length_at, sizeof length);
    memcpy(&address, record + row->pointer_at, sizeof address);
    if (address == 0 || length <= 0)
        return 0;
    return length < BOARD_TAIL_MAX ? (size_t)length : BOARD_TAIL_MAX;
}

static int carry_out(const struct board_call *call, const struct board_request_info *row)
{
    unsigned char *state = (unsigned char *)call->board + row->state_at;
    const int failure = failure_take(call->board, row);

    if (failure != 0)
        return failure;
    if (row->carry_out != NULL)
        return row->carry_out(call);
    if (row->direction == BOARD_IN)
        memcpy(state, call->record, row->bytes);
    else
        memcpy(call->record, state, row->bytes);
    return 0;
}

int board_request(struct board *board, int64_t now_s, uint32_t request, void *bytes, size_t room, uint64_t value)
{
    const struct board_request_info *row = board_request_find(request);
    unsigned char before[BOARD_REQUEST_ROOM] = {0}, after[BOARD_REQUEST_ROOM];
    size_t length = 0;
    int result = 0;

    if (row == NULL) {
        result = -ENOTTY;
    } else if (row->direction == BOARD_TEXT) {
        while (length < room && length + 1 < row->bytes && ((const char *)bytes)[length] != '\0')
            length++;
        memcpy(before, bytes, length);
    } else if (room < row->bytes || (row->bytes > 0 && room < row->bytes + tail_length(row, bytes))) {
        result = -EINVAL;
    } else if (row->bytes > 0) {
        memcpy(before, bytes, row->bytes + tail_length(row, bytes));
    }
    memcpy(after, before, sizeof after);
    if (result == 0) {
        const struct board_call call = {board, now_s, after, value};

        result = carry_out(&call, row);
    }
    if (result == 0 && (row->direction == BOARD_OUT || row->direction == BOARD_IN_OUT))
        memcpy(bytes, after, row->bytes);
    board_note_request(board, row, request, before, after, value, result);
    return result;
}

/* Copies in what the request brings. Returns 0, or the carrier's failure. */
static int fetch(const struct board_request_info *row, uint64_t address, const struct board_memory *memory,
                 unsigned char *bytes)
{
    uint64_t text;
    int result = 0;

    if (row->direction == BOARD_TEXT) { /* byte by byte, since nothing beyond the NUL may be touched */
        for (size_t i = 0; i + 1 < row->bytes && result == 0; i++) {
            result = memory->in(memory->context, bytes + i, address + i, 1);
            if (bytes[i] == '\0')
                break;
        }
        return result;
    }
    if (row->direction != BOARD_IN && row->direction != BOARD_IN_OUT)
        return 0;
    result = memory->in(memory->context, bytes, address, row->bytes);
    if (result != 0 || tail_length(row, bytes) == 0)
        return result;
    memcpy(&text, bytes + row->pointer_at, sizeof text);
    return memory->in(memory->context, bytes + row->bytes, text, tail_length(row, bytes));
}

long board_ioctl(struct board *board, int64_t now_s, uint32_t request, uint64_t argument,
                 const struct board_memory *memory)
{
    const struct board_request_info *row = board_request_find(request);
    unsigned char bytes[BOARD_REQUEST_ROOM] = {0};
    int result = row != NULL ? fetch(row, argument, memory, bytes) : -ENOTTY;

    if (result != 0) {
        board_note_request(board, row, request, bytes, bytes, argument, result);
        return result;
    }
    result = board_request(board, now_s, request, bytes, sizeof bytes, argument);
    if (result == 0 && (row->direction == BOARD_OUT || row->direction == BOARD_IN_OUT))
        result = memory->out(memory->context, argument, bytes, row->bytes);
    return result;
}
