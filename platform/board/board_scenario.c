#include "board_internal.h"

#define WORD_ROOM 64

/* One line being read. */
struct scenario {
    struct board *board;
    int64_t now_s;
    const char *at, *end;
};

static int is_space(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\r';
}

/* The value of one hexadecimal digit, or -1. */
static int hex_digit(char byte)
{
    if (byte >= '0' && byte <= '9')
        return byte - '0';
    if (byte >= 'a' && byte <= 'f')
        return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F')
        return byte - 'A' + 10;
    return -1;
}

/* Takes the byte behind a backslash in quotes: \" \\ or \xNN. Returns it, or -1. */
static int escape_take(struct scenario *line)
{
    int byte;

    if (line->at == line->end)
        return -1;
    if (*line->at != 'x')
        return *line->at == '"' || *line->at == '\\' ? *line->at++ : -1;
    if (line->end - line->at < 3 || hex_digit(line->at[1]) < 0 || hex_digit(line->at[2]) < 0)
        return -1;
    byte = hex_digit(line->at[1]) * 16 + hex_digit(line->at[2]);
    line->at += 3;
    return byte;
}

/*
 * Takes the next word, NUL-terminated; quotes may hold anything. Returns its length, 0 at the line's end, or -EINVAL
 * for one that is too long, empty quotes or a quote that does not end.
 */
static int word_take(struct scenario *line, char *word)
{
    int length = 0, quoted;

    while (line->at < line->end && is_space(*line->at))
        line->at++;
    if (line->at == line->end || *line->at == '#')
        return 0;
    quoted = *line->at == '"';
    line->at += quoted;
    for (;;) {
        int byte;

        if (line->at == line->end) {
            if (quoted)
                return -EINVAL;
            break;
        }
        if (!quoted && is_space(*line->at))
            break;
        byte = (unsigned char)*line->at++;
        if (quoted && byte == '"')
            break;
        if (quoted && byte == '\\')
            byte = escape_take(line);
        if (byte <= 0 || length + 1 == WORD_ROOM) /* a NUL would end the word early */
            return -EINVAL;
        word[length++] = (char)byte;
    }
    word[length] = '\0';
    return length > 0 ? length : -EINVAL;
}

static int number_parse(const char *word, int64_t min, int64_t max, int64_t *number)
{
    const int negative = word[0] == '-';
    const char *at = word + negative;
    const int base = at[0] == '0' && (at[1] == 'x' || at[1] == 'X') ? 16 : 10;
    int64_t value = 0;

    at += base == 16 ? 2 : 0;
    if (*at == '\0')
        return -EINVAL;
    for (; *at != '\0'; at++) {
        const int digit = hex_digit(*at);

        if (digit < 0 || digit >= base || value > 0xffffffffLL)
            return -EINVAL;
        value = value * base + digit;
    }
    value = negative ? -value : value;
    if (value < min || value > max)
        return -EINVAL;
    *number = value;
    return 0;
}

static int number_take(struct scenario *line, int64_t min, int64_t max, int64_t *number)
{
    char word[WORD_ROOM];

    return word_take(line, word) > 0 ? number_parse(word, min, max, number) : -EINVAL;
}

/* Takes numbers to the line's end, at most as many as the form of the line allows. Returns how many, or -EINVAL. */
static int numbers_take(struct scenario *line, int64_t min, int64_t max, int64_t *numbers)
{
    char word[WORD_ROOM];
    int count = 0;

    for (; word_take(line, word) > 0; count++)
        if (number_parse(word, min, max, &numbers[count]) != 0)
            return -EINVAL;
    return count;
}

/* Takes one of `names` and returns its place, or -EINVAL. */
static int name_take(struct scenario *line, const char *const *names, int count)
{
    char word[WORD_ROOM];

    if (word_take(line, word) <= 0)
        return -EINVAL;
    for (int i = 0; i < count; i++)
        if (strcmp(names[i], word) == 0)
            return i;
    return -EINVAL;
}

static const char *const off_on[] = {"off", "on"};

static int line_led(struct scenario *line)
{
    const int lamp = name_take(line, board_lamp_names, BOARD_LAMPS);
    const int light = name_take(line, board_light_names, BOARD_LIGHTS);

    if (lamp < 0 || light < 0)
        return -EINVAL;
    line->board->lamps[lamp] = (uint8_t)light;
    return 0;
}

static int line_disks(struct scenario *line)
{
    int64_t count;

    if (number_take(line, 0, BOARD_DISKS, &count) != 0)
        return -EINVAL;
    line->board->disk_count = (int32_t)count;
    return 0;
}

static int line_disk_led(struct scenario *line)
{
    int64_t disk;
    int light;

    if (number_take(line, 1, BOARD_DISKS, &disk) != 0)
        return -EINVAL;
    light = name_take(line, board_disk_light_names, BOARD_DISK_LIGHTS);
    if (light < 0)
        return -EINVAL;
    line->board->disks[disk - 1] = (uint8_t)light;
    return 0;
}

static int line_switch(struct scenario *line)
{
    const int which = name_take(line, board_switch_names, BOARD_SWITCHES);
    const int on = name_take(line, off_on, 2);

    if (which < 0 || on < 0)
        return -EINVAL;
    line->board->switches[which] = (uint8_t)on;
    return 0;
}

/* Parses numbers of fixed width with one kind of mark between them: "2024-02-29". */
static int marked_numbers(const char *word, const int *widths, char mark, int64_t *numbers)
{
    for (int i = 0; i < 3; i++) {
        char part[8] = "";

        if (i > 0 && *word++ != mark)
            return -EINVAL;
        for (int j = 0; j < widths[i]; j++) {
            if (*word < '0' || *word > '9')
                return -EINVAL;
            part[j] = *word++;
        }
        if (number_parse(part, 0, 9999, &numbers[i]) != 0)
            return -EINVAL;
    }
    return *word == '\0' ? 0 : -EINVAL;
}

static int line_clock(struct scenario *line)
{
    static const int date_widths[] = {4, 2, 2}, time_widths[] = {2, 2, 2};
    char date_word[WORD_ROOM], time_word[WORD_ROOM];
    int64_t date[3], time[3], seconds;
    struct board_time record;

    if (word_take(line, date_word) <= 0 || word_take(line, time_word) <= 0 ||
        marked_numbers(date_word, date_widths, '-', date) != 0 ||
        marked_numbers(time_word, time_widths, ':', time) != 0 || date[0] < 1900 || date[0] > 2155 || date[1] < 1)
        return -EINVAL;
    record.year = (uint8_t)(date[0] - 1900);
    record.month = (uint8_t)(date[1] - 1);
    record.month_day = (uint8_t)date[2];
    record.week_day = 0;
    record.hour = (uint8_t)time[0];
    record.minute = (uint8_t)time[1];
    record.second = (uint8_t)time[2];
    if (board_time_join(&record, &seconds) != 0)
        return -EINVAL;
    line->board->clock_offset_s = seconds - line->now_s;
    return 0;
}

static int line_schedule(struct scenario *line)
{
    struct board_schedule schedule = {0};
    char word[WORD_ROOM];

    schedule.enabled = name_take(line, off_on, 2);
    if (schedule.enabled < 0)
        return -EINVAL;
    for (; word_take(line, word) > 0; schedule.count++) {
        uint8_t *entry = schedule.times[schedule.count];
        int64_t number;

        if (number_parse(word, 0, 0x7fffff, &number) != 0)
            return -EINVAL;
        entry[0] = (uint8_t)(number & 0xff);
        entry[1] = (uint8_t)(number >> 8 & 0xff);
        entry[2] = (uint8_t)(number >> 16);
        if (entry[0] > 59 || entry[1] > 23)
            return -EINVAL;
    }
    line->board->schedule = schedule;
    return 0;
}

static int line_fans(struct scenario *line)
{
    int64_t count;

    if (number_take(line, 0, BOARD_FANS, &count) != 0)
        return -EINVAL;
    line->board->fan_count = (int32_t)count;
    return 0;
}

static int line_fan(struct scenario *line)
{
    int64_t fan, rpm;

    if (number_take(line, 1, BOARD_FANS, &fan) != 0 || number_take(line, 0, 99999, &rpm) != 0)
        return -EINVAL;
    line->board->fan_rpm[fan - 1] = (int32_t)rpm;
    return 0;
}

static int line_temperature(struct scenario *line)
{
    int64_t celsius;

    if (number_take(line, -273, 999, &celsius) != 0)
        return -EINVAL;
    line->board->temperature = (int32_t)celsius;
    return 0;
}

static int line_cpu_temperature(struct scenario *line)
{
    int64_t celsius[BOARD_CORES] = {0};
    const int count = numbers_take(line, -273, 999, celsius);

    if (count < 0)
        return -EINVAL;
    line->board->cores.count = count;
    for (int i = 0; i < BOARD_CORES; i++)
        line->board->cores.celsius[i] = (int32_t)celsius[i];
    return 0;
}

static int line_module(struct scenario *line)
{
    int64_t types[3] = {0};

    if (numbers_take(line, -0x80000000LL, 0x7fffffff, types) < 0)
        return -EINVAL;
    for (int i = 0; i < 3; i++)
        line->board->module_type[i] = (int32_t)types[i];
    return 0;
}

static int line_gpio(struct scenario *line)
{
    int64_t pin, value;

    if (number_take(line, 0, BOARD_PINS - 1, &pin) != 0 || number_take(line, 0, 0xffffffffLL, &value) != 0)
        return -EINVAL;
    line->board->pins[pin] = (uint32_t)value;
    return 0;
}

static int line_cpld(struct scenario *line)
{
    int64_t values[2];

    if (numbers_take(line, -0x80000000LL, 0x7fffffff, values) != 2)
        return -EINVAL;
    line->board->cpld[0] = (int32_t)values[0];
    line->board->cpld[1] = (int32_t)values[1];
    return 0;
}

static int line_cpld_byte(struct scenario *line)
{
    int64_t offset, value;

    if (number_take(line, 0, BOARD_REGISTERS - 1, &offset) != 0 || number_take(line, 0, 0xff, &value) != 0)
        return -EINVAL;
    line->board->registers[offset] = (uint8_t)value;
    return 0;
}

static int line_memory(struct scenario *line)
{
    int64_t address, value;

    if (number_take(line, 0, 0xffffffffLL, &address) != 0 || number_take(line, 0, 0xffffffffLL, &value) != 0)
        return -EINVAL;
    return board_memory_set(line->board, (uint32_t)address, (uint32_t)value);
}

static int line_status(struct scenario *line)
{
    int64_t values[2];

    if (numbers_take(line, -0x80000000LL, 0x7fffffff, values) != 2)
        return -EINVAL;
    line->board->status_pair[0] = (int32_t)values[0];
    line->board->status_pair[1] = (int32_t)values[1];
    return 0;
}

static int line_event(struct scenario *line)
{
    int64_t codes[BOARD_EVENTS];
    const int count = numbers_take(line, -0x80000000LL, 0x7fffffff, codes);

    if (count < 0)
        return -EINVAL;
    if ((uint32_t)count > BOARD_EVENTS - line->board->event_count)
        return -ENOSPC;
    for (int i = 0; i < count; i++)
        (void)board_event_raise(line->board, (int32_t)codes[i]);
    return 0;
}

static int line_press(struct scenario *line)
{
    const int which = name_take(line, board_button_names, BOARD_BUTTONS);

    return which < 0 ? -EINVAL : board_button_press(line->board, (enum board_button)which);
}

static int line_wire(struct scenario *line)
{
    const int which = name_take(line, board_button_names, BOARD_BUTTONS);
    int64_t event;

    if (which < 0 || number_take(line, 0, 0x7fffffff, &event) != 0)
        return -EINVAL;
    line->board->button_events[which] = (int32_t)event;
    return 0;
}

static int line_micro_bytes(struct scenario *line)
{
    int64_t bytes[BOARD_MICRO_BYTES];
    const int count = numbers_take(line, 0, 0xff, bytes);

    if (count < 0)
        return -EINVAL;
    if ((uint32_t)count > BOARD_MICRO_BYTES - line->board->micro_count)
        return -ENOSPC;
    for (int i = 0; i < count; i++)
        (void)board_micro_byte_add(line->board, (uint8_t)bytes[i]);
    return 0;
}

static int line_micro_reply(struct scenario *line)
{
    char text[WORD_ROOM], reply[WORD_ROOM];
    const int text_length = word_take(line, text);
    const int reply_length = word_take(line, reply);
    struct board_micro_reply *rows = line->board->micro_replies;

    if (text_length < 1 || text_length > 8 || reply_length < 0 || reply_length > 8)
        return -EINVAL;
    for (int i = 0; i < BOARD_MICRO_REPLIES; i++) {
        if (rows[i].text[0] != '\0' && strncmp(rows[i].text, text, sizeof rows[i].text) != 0)
            continue;
        memset(&rows[i], 0, sizeof rows[i]);
        memcpy(rows[i].text, text, (size_t)text_length);
        memcpy(rows[i].reply, reply, (size_t)reply_length);
        return 0;
    }
    return -ENOSPC;
}

static int line_incompatible(struct scenario *line)
{
    struct board_interfaces *interfaces = &line->board->interfaces;
    char name[WORD_ROOM];
    int64_t disks[64];
    const int length = word_take(line, name);
    const int count = numbers_take(line, 1, 64, disks);

    if (length < 1 || (size_t)length >= sizeof interfaces->groups[0].name || count < 0)
        return -EINVAL;
    if (interfaces->count == BOARD_GROUPS)
        return -ENOSPC;
    memcpy(interfaces->groups[interfaces->count].name, name, (size_t)length);
    for (int i = 0; i < count; i++)
        interfaces->groups[interfaces->count].incompatible[disks[i] - 1] = 1;
    interfaces->count++;
    return 0;
}

/* The place of a request in its table by name or whole code, or -EINVAL. */
static int request_take(struct scenario *line)
{
    char word[WORD_ROOM];
    int64_t code = 0;

    if (word_take(line, word) <= 0)
        return -EINVAL;
    (void)number_parse(word, 0, 0xffffffffLL, &code);
    for (int i = 0; i < BOARD_REQUESTS; i++)
        if (strcmp(board_requests[i].name, word) == 0 || (int64_t)board_requests[i].code == code)
            return i;
    return -EINVAL;
}

static int line_fail(struct scenario *line)
{
    const int request = request_take(line);
    int64_t numbers[2] = {-1, 0}; /* fails for good, from the next one on */
    char error[WORD_ROOM];
    struct board_failure failure;

    (void)word_take(line, error);
    failure.error = board_error_find(error);
    if (request < 0 || (failure.error == 0 && strcmp(error, "none") != 0) ||
        numbers_take(line, 0, 0x7fffffff, numbers) < 0)
        return -EINVAL;
    failure.count = (int32_t)numbers[0];
    failure.after = (int32_t)numbers[1];
    line->board->failures[request] = failure;
    return 0;
}

static const struct {
    const char *word;
    int (*read)(struct scenario *line);
    int least, most; /* words that follow */
    const char *form;
} words[] = {
    {"led", line_led, 2, 2, "led LAMP LIGHT"},
    {"disks", line_disks, 1, 1, "disks COUNT"},
    {"disk_led", line_disk_led, 2, 2, "disk_led DISK off|normal|fault"},
    {"switch", line_switch, 2, 2, "switch NAME on|off"},
    {"clock", line_clock, 2, 2, "clock YYYY-MM-DD HH:MM:SS"},
    {"schedule", line_schedule, 1, BOARD_SCHEDULES + 1, "schedule on|off [0xWWHHMM ...]"},
    {"fans", line_fans, 1, 1, "fans COUNT"},
    {"fan", line_fan, 2, 2, "fan NUMBER RPM"},
    {"temperature", line_temperature, 1, 1, "temperature CELSIUS"},
    {"cpu_temperature", line_cpu_temperature, 1, BOARD_CORES, "cpu_temperature CELSIUS [CELSIUS [CELSIUS]]"},
    {"module", line_module, 1, 3, "module FAN_TYPE [TYPE [TYPE]]"},
    {"gpio", line_gpio, 2, 2, "gpio PIN VALUE"},
    {"cpld", line_cpld, 2, 2, "cpld FIRST SECOND"},
    {"cpld_byte", line_cpld_byte, 2, 2, "cpld_byte OFFSET VALUE"},
    {"memory", line_memory, 2, 2, "memory ADDRESS VALUE"},
    {"status", line_status, 2, 2, "status FIRST SECOND"},
    {"event", line_event, 1, BOARD_EVENTS, "event CODE ..."},
    {"press", line_press, 1, 1, "press power|reset|copy"},
    {"wire", line_wire, 2, 2, "wire power|reset|copy EVENT"},
    {"micro_bytes", line_micro_bytes, 1, BOARD_MICRO_BYTES, "micro_bytes BYTE ..."},
    {"micro_reply", line_micro_reply, 2, 2, "micro_reply TEXT REPLY"},
    {"incompatible", line_incompatible, 2, 65, "incompatible NAME DISK ..."},
    {"fail", line_fail, 2, 4, "fail REQUEST ERRNO|none [COUNT [AFTER]]"},
};

/* How many words are left on the line, or -EINVAL. */
static int words_count(struct scenario line)
{
    char word[WORD_ROOM];
    int count = 0, length;

    while ((length = word_take(&line, word)) > 0)
        count++;
    return length == 0 ? count : -EINVAL;
}

static int line_read(struct scenario *line, struct board_text *error)
{
    const int count = words_count(*line);
    char word[WORD_ROOM];
    int result;

    if (count < 0)
        board_text_add(error, "a word is too long, empty or its quote does not end");
    if (count <= 0)
        return count;
    (void)word_take(line, word);
    for (size_t i = 0; i < sizeof words / sizeof words[0]; i++) {
        if (strcmp(words[i].word, word) != 0)
            continue;
        result = count - 1 < words[i].least || count - 1 > words[i].most ? -EINVAL : words[i].read(line);
        if (result != 0)
            board_text_add(error, "%s: %s", result == -ENOSPC ? "no room for more" : "expected", words[i].form);
        return result;
    }
    board_text_add(error, "no such word: ");
    board_text_quote(error, word, sizeof word);
    return -EINVAL;
}

int board_scenario_line(struct board *board, int64_t now_s, const char *line, char *error, size_t error_room)
{
    struct scenario words_of_line = {board, now_s, line, line + strlen(line)};
    struct board_text complaint = board_text_begin(error, error_room);

    return line_read(&words_of_line, &complaint);
}

int board_scenario_load(struct board *board, int64_t now_s, const char *text, size_t length, char *error,
                        size_t error_room)
{
    struct board_text complaint = board_text_begin(error, error_room);
    const char *end = text + length;

    for (int number = 1; text < end; number++) {
        struct scenario line = {board, now_s, text, text};
        const size_t prefix = complaint.length;
        int result;

        while (line.end < end && *line.end != '\n')
            line.end++;
        text = line.end < end ? line.end + 1 : end;
        board_text_add(&complaint, "line %d: ", number);
        result = line_read(&line, &complaint);
        if (result != 0)
            return result;
        complaint.length = prefix; /* the line was good */
        if (error_room > 0)
            error[prefix] = '\0';
    }
    return 0;
}
