#include "board_internal.h"

const char *const board_lamp_names[BOARD_LAMPS] = {
    "power", "status", "alert", "usb", "esata", "memtest", "panel_status", "panel_alert",
};
const char *const board_light_names[BOARD_LIGHTS] = {
    "off", "on", "blinking", "green", "green-blinking", "orange", "orange-blinking",
};
const char *const board_disk_light_names[BOARD_DISK_LIGHTS] = {"off", "normal", "fault"};
const char *const board_switch_names[BOARD_SWITCHES] = {
    "ac_recovery",   "schedule",  "fan_checker", "wake_on_lan", "micro_log", "micro_version",
    "manufacturing", "disk_mask", "started",     "power_grant", "reset",
};
const char *const board_button_names[BOARD_BUTTONS] = {"power", "reset", "copy"};

/* What the micro-controller tells of a button that is pressed. */
static const uint8_t button_codes[BOARD_BUTTONS] = {0x30, 0x61, 0x60};

void board_init(struct board *board, int64_t now_s)
{
    static const struct board_time start = {.month_day = 1, .year = 100};
    int64_t start_s = 0;

    memset(board, 0, sizeof *board);
    board->disk_count = 4;
    board->pwm_duty = -1;
    board->pwm_frequency = -1;
    (void)board_time_join(&start, &start_s);
    board->clock_offset_s = start_s - now_s;
    board->fan_count = 2;
    board->fan_rpm[0] = 1200;
    board->fan_rpm[1] = 1200;
    board->temperature = 38;
    board->cores.count = 2;
    board->cores.celsius[0] = 45;
    board->cores.celsius[1] = 44;
    board->status_pair[0] = 1;
    board->status_pair[1] = 1;
    /* The version repeats for as long as its report is on; a reply is cut out of the stream. */
    memcpy(board->micro_replies[0].text, "O", 1);
    memcpy(board->micro_replies[0].reply, "N12fN12", 7);
}

int board_event_raise(struct board *board, int32_t event)
{
    if (board->event_count == BOARD_EVENTS)
        return -ENOSPC;
    board->events[(board->event_first + board->event_count++) % BOARD_EVENTS] = event;
    return 0;
}

uint32_t board_event_pending(const struct board *board)
{
    return board->event_count;
}

int board_micro_byte_add(struct board *board, uint8_t byte)
{
    if (board->micro_count == BOARD_MICRO_BYTES)
        return -ENOSPC;
    board->micro_bytes[(board->micro_first + board->micro_count++) % BOARD_MICRO_BYTES] = byte;
    return 0;
}

int board_button_press(struct board *board, enum board_button button)
{
    return board_micro_byte_add(board, button_codes[button]);
}

/* Where the word of an address stands, or where the next one goes. */
static uint32_t word_index(const struct board *board, uint32_t address)
{
    uint32_t i = 0;

    while (i < board->word_count && board->words[i].address != address)
        i++;
    return i;
}

uint32_t board_memory_get(const struct board *board, uint32_t address)
{
    const uint32_t i = word_index(board, address);

    return i < board->word_count ? board->words[i].value : 0;
}

int board_memory_set(struct board *board, uint32_t address, uint32_t value)
{
    const uint32_t i = word_index(board, address);

    if (i == BOARD_WORDS)
        return -ENOSPC;
    board->words[i].address = address;
    board->words[i].value = value;
    if (i == board->word_count)
        board->word_count++;
    return 0;
}
