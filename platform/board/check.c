#include "check.h"

#include "board_internal.h"

#define GUARD 0xa5 /* fills what a device has not written */
#define GUARD_BYTES 64
#define LINE_ROOM 256

struct record {
    unsigned char bytes[BOARD_RECORD_MAX + GUARD_BYTES];
};

static int32_t word_at(const struct record *record, size_t index)
{
    int32_t word;

    memcpy(&word, record->bytes + index * sizeof word, sizeof word);
    return word;
}

static void word_put(struct record *record, size_t index, int32_t word)
{
    memcpy(record->bytes + index * sizeof word, &word, sizeof word);
}

/* Each of these judges a record that a device has answered: NULL, or what is odd about it. */

static const char *judge_time(const struct record *record)
{
    struct board_time time, again;
    int64_t seconds;

    memcpy(&time, record->bytes, sizeof time);
    if (board_time_join(&time, &seconds) != 0)
        return "no such time";
    board_time_split(seconds, &again);
    return time.week_day == again.week_day ? NULL : "another day of the week";
}

static const char *judge_celsius(int32_t celsius)
{
    return celsius >= -40 && celsius <= 125 ? NULL : "no temperature of a board that runs";
}

static const char *judge_temperature(const struct record *record)
{
    return judge_celsius(word_at(record, 0));
}

static const char *judge_cores(const struct record *record)
{
    const int32_t count = word_at(record, 0);
    const char *odd = count >= 0 && count <= BOARD_CORES ? NULL : "no number of cores";

    for (int32_t i = 0; odd == NULL && i < count; i++)
        odd = judge_celsius(word_at(record, 1 + (size_t)i));
    return odd;
}

static const char *judge_fan_count(const struct record *record)
{
    return word_at(record, 0) >= 0 && word_at(record, 0) <= 64 ? NULL : "no number of fans";
}

static const char *judge_fan(const struct record *record)
{
    if (word_at(record, 0) != 1)
        return "another fan than asked for";
    return word_at(record, 1) == 0 || word_at(record, 1) == 1 ? NULL : "a state other than 0 and 1";
}

static const char *judge_schedule(const struct record *record)
{
    struct board_schedule schedule;

    memcpy(&schedule, record->bytes, sizeof schedule);
    if (schedule.count < 0 || schedule.count > BOARD_SCHEDULES)
        return "no number of times";
    if (schedule.enabled != 0 && schedule.enabled != 1)
        return "enabled is neither 0 nor 1";
    for (int32_t i = 0; i < schedule.count; i++)
        if (schedule.times[i][0] > 59 || schedule.times[i][1] > 23 || schedule.times[i][2] > 0x7f)
            return "no such time";
    return NULL;
}

static const char *judge_offset(const struct record *record)
{
    return record->bytes[0] == 0 ? NULL : "another offset than asked for";
}

static const char *judge_pin(const struct record *record)
{
    return word_at(record, 0) == 0 ? NULL : "another pin than asked for";
}

static const char *judge_reply(const struct record *record)
{
    for (size_t i = 0; i < 7; i++)
        if (record->bytes[i] >= 'A' && record->bytes[i] <= 'Z')
            return NULL;
    return "no version in the reply";
}

static const char *judge_interfaces(const struct record *record)
{
    struct board_interfaces interfaces;

    memcpy(&interfaces, record->bytes, sizeof interfaces);
    if (interfaces.count < 0 || interfaces.count > BOARD_GROUPS)
        return "no number of groups";
    for (int32_t i = 0; i < interfaces.count; i++) {
        const size_t room = sizeof interfaces.groups[i].name;

        if (strnlen(interfaces.groups[i].name, room) == room)
            return "a name without end";
        for (size_t disk = 0; disk < sizeof interfaces.groups[i].incompatible; disk++)
            if (interfaces.groups[i].incompatible[disk] > 1)
                return "a disk that is neither 0 nor 1";
    }
    return NULL;
}

static const char slot_name[] = "internal_slot";

/* Each of these makes the record that a request brings; it is all zero before. */

static void make_control(struct record *record) /* status LED green */
{
    word_put(record, 0, 0x5200);
}
static void make_disk_led(struct record *record) /* the first disk, normal */
{
    const char *name = slot_name;

    word_put(record, 0, 1);
    word_put(record, 1, BOARD_DISK_NORMAL);
    word_put(record, 2, (int32_t)sizeof slot_name);
    memcpy(record->bytes + 16, &name, sizeof name);
}
static void make_first(struct record *record) /* the first fan */
{
    word_put(record, 0, 1);
}
static void make_source(struct record *record)
{
    word_put(record, 0, 2);
}
static void make_text(struct record *record) /* status LED green */
{
    record->bytes[0] = '8';
}
static void make_question(struct record *record) /* version report on; asked again it goes off */
{
    record->bytes[0] = 'O';
    word_put(record, 2, 7);
}
static void make_one_byte(struct record *record)
{
    word_put(record, 2, 1);
}

enum asked { ALWAYS, WITH_CHANGE, WITH_CHANGE_TWICE, WRITTEN_BACK, NEVER };

struct check {
    const char *name;
    enum asked asked;  /* WRITTEN_BACK: with change, and with the record of the row before */
    int may_fail_with; /* a failure that is an answer */
    void (*make)(struct record *record);
    const char *(*judge)(const struct record *record);
    const char *reason; /* why a request is never asked */
};

static const struct check checks[BOARD_REQUESTS] = {
    {"control", WITH_CHANGE, 0, make_control, NULL, NULL},
    {"event_get", WITH_CHANGE, EAGAIN, NULL, NULL, NULL},
    {"rtc_read", ALWAYS, 0, NULL, judge_time, NULL},
    {"rtc_write", WRITTEN_BACK, 0, NULL, NULL, NULL},
    {"button_power", NEVER, 0, NULL, NULL, "it acts as a press of the button"},
    {"button_reset", NEVER, 0, NULL, NULL, "it acts as a press of the button"},
    {"button_copy", NEVER, 0, NULL, NULL, "it acts as a press of the button"},
    {"disk_led", WITH_CHANGE, 0, make_disk_led, NULL, NULL},
    {"fan_status", ALWAYS, 0, make_first, judge_fan, NULL},
    {"cpld_first", ALWAYS, 0, NULL, NULL, NULL},
    {"cpld_second", ALWAYS, 0, NULL, NULL, NULL},
    {"temperature", ALWAYS, 0, NULL, judge_temperature, NULL},
    {"schedule_read", ALWAYS, 0, NULL, judge_schedule, NULL},
    {"schedule_write", WRITTEN_BACK, 0, NULL, NULL, NULL},
    {"cpld_byte_read", ALWAYS, 0, NULL, judge_offset, NULL},
    {"cpld_byte_write", WRITTEN_BACK, 0, NULL, NULL, NULL},
    {"event_source", WITH_CHANGE, 0, make_source, NULL, NULL},
    {"fan_count", ALWAYS, 0, NULL, judge_fan_count, NULL},
    {"status_pair", ALWAYS, 0, NULL, NULL, NULL},
    {"module_type", ALWAYS, 0, NULL, NULL, NULL},
    {"micro_write", WITH_CHANGE, 0, make_text, NULL, NULL},
    {"cpu_temperature", ALWAYS, 0, NULL, judge_cores, NULL},
    {"start", WITH_CHANGE, 0, NULL, NULL, NULL},
    {"disk_led_mask", WITH_CHANGE, 0, NULL, NULL, NULL},
    {"memory_write", NEVER, 0, NULL, NULL, "no address is known to be safe"},
    {"memory_read", NEVER, 0, NULL, NULL, "no address is known to be safe"},
    {"micro_ask", WITH_CHANGE_TWICE, 0, make_question, judge_reply, NULL},
    {"micro_read", WITH_CHANGE, 0, make_one_byte, NULL, NULL},
    {"micro_log", WITH_CHANGE, 0, NULL, NULL, NULL},
    {"manutil_mode", WITH_CHANGE, 0, NULL, NULL, NULL},
    {"gpio_read", ALWAYS, 0, NULL, judge_pin, NULL},
    {"gpio_write", NEVER, 0, NULL, NULL, "what a pin does is the board's own matter"},
    {"disk_interfaces", ALWAYS, 0, NULL, judge_interfaces, NULL},
};

static const struct board_request_info *row_named(const char *name)
{
    const struct board_request_info *row = board_requests;

    while (strcmp(row->name, name) != 0)
        row++;
    return row;
}

/* How many of `count` bytes are not the guard's. */
static size_t written(const unsigned char *bytes, size_t count)
{
    size_t found = 0;

    for (size_t i = 0; i < count; i++)
        found += bytes[i] != GUARD;
    return found;
}

/* Asks one request. Returns its result, and what is odd about its answer. */
static int row_ask(const struct board_device *device, const struct check *check, const struct board_request_info *row,
                   struct record *record, const char **odd)
{
    const uintptr_t argument = row->direction == BOARD_VALUE ? 1 : (uintptr_t)record->bytes;
    const int result = device->ask(device->context, row->code, argument);

    *odd = NULL;
    if (result < 0)
        return result;
    if (written(record->bytes + row->bytes, GUARD_BYTES) != 0)
        *odd = "bytes behind the record were written";
    else if (row->direction == BOARD_OUT && written(record->bytes, row->bytes) == 0)
        *odd = "the record was not filled";
    else if (check->judge != NULL)
        *odd = check->judge(record);
    return result;
}

static int row_check(const struct board_device *device, const struct check *check, struct record *record, int change,
                     int is_fit)
{
    const struct board_request_info *row = row_named(check->name);
    unsigned char shown[2][BOARD_REQUEST_ROOM] = {{0}}; /* before and after, with the text that a record points to */
    const char *odd = NULL, *reason = change == 0 ? "it changes the board" : NULL, *verdict = "ok";
    char line[LINE_ROOM];
    struct board_text text = board_text_begin(line, sizeof line);
    int result;

    if (check->asked == ALWAYS)
        reason = NULL;
    else if (check->asked == NEVER)
        reason = check->reason;
    else if (check->asked == WRITTEN_BACK && reason == NULL && !is_fit)
        reason = "what was read is not fit to be written back";
    if (reason != NULL) {
        board_text_add(&text, "left out 0x%08x %s: %s", row->code, row->name, reason);
        device->tell(device->context, line);
        return 0;
    }

    if (check->asked != WRITTEN_BACK)
        memset(record->bytes, row->direction == BOARD_OUT ? GUARD : 0, row->bytes);
    if (check->make != NULL)
        check->make(record);
    memset(record->bytes + row->bytes, GUARD, GUARD_BYTES);
    memcpy(shown[0], record->bytes, row->bytes);
    if (row->pointer_at != 0)
        memcpy(shown[0] + row->bytes, slot_name, sizeof slot_name);
    result = row_ask(device, check, row, record, &odd);
    memcpy(shown[1], record->bytes, row->bytes);
    if (result >= 0 && odd == NULL && check->asked == WITH_CHANGE_TWICE) {
        memcpy(record->bytes, shown[0], row->bytes);
        result = row_ask(device, check, row, record, &odd);
    }

    if (result < 0 && result != -check->may_fail_with)
        verdict = "failed";
    else if (odd != NULL)
        verdict = "odd";
    board_text_add(&text, "%-8s ", verdict);
    board_text_request(&text, row, row->code, shown[0], shown[1], 1, result);
    if (odd != NULL)
        board_text_add(&text, ": %s", odd);
    device->tell(device->context, line);
    return strcmp(verdict, "ok") != 0;
}

int board_check(const struct board_device *device, int change)
{
    struct record record;
    int bad = 0, last_is_bad = 0;

    for (size_t i = 0; i < BOARD_REQUESTS; i++) {
        const int row_is_bad = row_check(device, &checks[i], &record, change, !last_is_bad);

        bad += row_is_bad;
        last_is_bad = row_is_bad;
    }
    return bad;
}
