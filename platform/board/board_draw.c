#include "board_internal.h"

#define PANEL_COLUMNS 40

static void lamp_add(struct board_text *text, const struct board *board, enum board_lamp lamp)
{
    static const char faces[BOARD_LIGHTS][4] = {"[ ]", "[*]", "[~]", "[*]", "[~]", "[*]", "[~]"};
    const unsigned light = board->lamps[lamp];

    if (light >= BOARD_LIGHTS)
        return;
    board_text_add(text, "%s %s %s   ", faces[light], board_lamp_names[lamp], board_light_names[light]);
}

static void panel_line_add(struct board_text *text, const char *line)
{
    char shown[PANEL_COLUMNS + 1];

    memset(shown, ' ', PANEL_COLUMNS);
    shown[PANEL_COLUMNS] = '\0';
    for (size_t i = 0; i < PANEL_COLUMNS && line[i] != '\0'; i++)
        shown[i] = (char)(line[i] >= ' ' && line[i] <= '~' ? line[i] : '?');
    board_text_add(text, "           |%s|\n", shown);
}

size_t board_draw(const struct board *board, int64_t now_s, char *drawing, size_t room)
{
    static const char rule[] = "+----------------------------------------+";
    struct board_text text = board_text_begin(drawing, room);
    struct board_time time;

    board_time_split(now_s + board->clock_offset_s, &time);
    board_text_add(&text, "clock      %04d-%02d-%02d %02d:%02d:%02d\n", time.year + 1900, time.month + 1,
                   time.month_day, time.hour, time.minute, time.second);

    board_text_add(&text, "lamps      ");
    for (int lamp = BOARD_LAMP_POWER; lamp <= BOARD_LAMP_ALERT; lamp++)
        lamp_add(&text, board, (enum board_lamp)lamp);
    board_text_add(&text, "\n           ");
    for (int lamp = BOARD_LAMP_USB; lamp <= BOARD_LAMP_MEMTEST; lamp++)
        lamp_add(&text, board, (enum board_lamp)lamp);
    board_text_add(&text, "\ndisks      ");
    for (int32_t i = 0; i < board->disk_count && i < BOARD_DISKS; i++)
        if (board->disks[i] < BOARD_DISK_LIGHTS)
            board_text_add(&text, "%d:%s  ", i + 1, board_disk_light_names[board->disks[i]]);
    board_text_add(&text, "\nbuzzer     %u long, %u short\n", board->beeps_long, board->beeps_short);

    board_text_add(&text, "panel      %s\n", rule);
    for (int i = 0; i < 2; i++)
        panel_line_add(&text, board->panel_lines[i]);
    board_text_add(&text, "           %s\n           ", rule);
    lamp_add(&text, board, BOARD_LAMP_PANEL_STATUS);
    lamp_add(&text, board, BOARD_LAMP_PANEL_ALERT);

    board_text_add(&text, "\nfans      ");
    for (int32_t i = 0; i < board->fan_count && i < BOARD_FANS; i++)
        board_text_add(&text, " %d:%d rpm ", i + 1, board->fan_rpm[i]);
    if (board->pwm_duty >= 0)
        board_text_add(&text, " duty %02d", board->pwm_duty);
    if (board->pwm_frequency >= 0)
        board_text_add(&text, " frequency %02d", board->pwm_frequency);
    board_text_add(&text, "\nheat       board %d C, processor", board->temperature);
    for (int32_t i = 0; i < board->cores.count && i < BOARD_CORES; i++)
        board_text_add(&text, " %d", board->cores.celsius[i]);
    board_text_add(&text, " C\nswitched  ");
    for (int i = 0; i < BOARD_SWITCHES; i++)
        if (board->switches[i] != 0)
            board_text_add(&text, " %s", board_switch_names[i]);
    board_text_add(&text, "\nalarm      %s, %d times\n", board->schedule.enabled != 0 ? "on" : "off",
                   board->schedule.count);

    board_text_add(&text, "events    ");
    for (uint32_t i = 0; i < board->event_count; i++)
        board_text_add(&text, " 0x%x", (unsigned)board->events[(board->event_first + i) % BOARD_EVENTS]);
    board_text_add(&text, "\npins      ");
    for (int i = 0; i < BOARD_PINS; i++)
        if (board->pins[i] != 0)
            board_text_add(&text, " %d=%u", i, board->pins[i]);
    board_text_add(&text, "\n");
    return text.length;
}
