/* What control codes, texts to the micro-controller and bytes to the front panel's lamps do to the board. */
#include "board_internal.h"

enum effect_kind {
    EFFECT_NONE,         /* known, and without a state to show */
    EFFECT_LAMP,         /* lamp `which` shows `value` */
    EFFECT_LAMP_BY_DATA, /* ... with data 1; off with 0, blinking with 2 */
    EFFECT_SWITCH,       /* switch `which` becomes `value` */
    EFFECT_TOGGLE,
    EFFECT_BEEP_LONG,
    EFFECT_BEEP_SHORT,
};

struct effect {
    int32_t control; /* 0: there is no such code */
    char text[4];    /* "": there is no such text */
    uint8_t kind, which, value;
};

#define LAMP(name, light) EFFECT_LAMP, BOARD_LAMP_##name, BOARD_LIGHT_##light
#define SWITCH(name, value) EFFECT_SWITCH, BOARD_SWITCH_##name, value

/* The codes for the USB lamp and its texts do not pair: "on" is sent as the text that puts it out. */
static const struct effect effects[] = {
    {0x4002, "4", LAMP(POWER, ON)},
    {0x4003, "5", LAMP(POWER, BLINKING)},
    {0, "6", LAMP(POWER, OFF)},
    {0x4004, "", EFFECT_NONE, 0, 0},
    {0x5100, "", LAMP(USB, ON)},
    {0x5101, "", LAMP(USB, OFF)},
    {0x5102, "A", LAMP(USB, BLINKING)},
    {0, "@", LAMP(USB, ON)},
    {0, "B", LAMP(USB, OFF)},
    {0x5200, "8", LAMP(STATUS, GREEN)},
    {0x5201, ":", LAMP(STATUS, ORANGE)},
    {0x5202, ";", LAMP(STATUS, ORANGE_BLINKING)},
    {0x5203, "7", LAMP(STATUS, OFF)},
    {0x5204, "9", LAMP(STATUS, GREEN_BLINKING)},
    {0x5205, "LA1", LAMP(ALERT, ON)},
    {0x5206, "LA2", LAMP(ALERT, BLINKING)},
    {0x5207, "LA3", LAMP(ALERT, OFF)},
    {0, "LE1", LAMP(ESATA, ON)},
    {0, "LE2", LAMP(ESATA, BLINKING)},
    {0, "LE3", LAMP(ESATA, OFF)},
    {0x5301, "3", EFFECT_BEEP_LONG, 0, 0},
    {0x5302, "2", EFFECT_BEEP_SHORT, 0, 0},
    {0x5400, "1", SWITCH(POWER_GRANT, 1)},
    {0x5500, "q", SWITCH(AC_RECOVERY, 1)},
    {0x5600, "p", SWITCH(AC_RECOVERY, 0)},
    {0x5700, "s", SWITCH(SCHEDULE, 1)},
    {0x5701, "r", SWITCH(SCHEDULE, 0)},
    {0x5800, "u", SWITCH(FAN_CHECKER, 1)},
    {0x5801, "t", SWITCH(FAN_CHECKER, 0)},
    {0, "l", SWITCH(WAKE_ON_LAN, 1)},
    {0, "k", SWITCH(WAKE_ON_LAN, 0)},
    {0, "C", SWITCH(RESET, 1)},
    {0, "O", EFFECT_TOGGLE, BOARD_SWITCH_MICRO_VERSION, 0},
    {0x5901, "", EFFECT_LAMP_BY_DATA, BOARD_LAMP_POWER, BOARD_LIGHT_ORANGE},
    {0x5902, "", EFFECT_LAMP_BY_DATA, BOARD_LAMP_POWER, BOARD_LIGHT_GREEN},
    {0x5903, "", EFFECT_LAMP_BY_DATA, BOARD_LAMP_MEMTEST, BOARD_LIGHT_ON},
};
#define EFFECT_COUNT (sizeof effects / sizeof effects[0])

static int effect_apply(struct board *board, const struct effect *effect, unsigned char data)
{
    const uint8_t by_data[] = {BOARD_LIGHT_OFF, effect->value, BOARD_LIGHT_BLINKING};

    switch (effect->kind) {
    case EFFECT_LAMP:
        board->lamps[effect->which] = effect->value;
        break;
    case EFFECT_LAMP_BY_DATA:
        if (data >= sizeof by_data)
            return -EINVAL;
        board->lamps[effect->which] = by_data[data];
        break;
    case EFFECT_SWITCH:
        board->switches[effect->which] = effect->value;
        break;
    case EFFECT_TOGGLE:
        board->switches[effect->which] ^= 1;
        break;
    case EFFECT_BEEP_LONG:
        board->beeps_long++;
        break;
    case EFFECT_BEEP_SHORT:
        board->beeps_short++;
        break;
    default:
        break;
    }
    return 0;
}

int board_control(struct board *board, int64_t control, char data)
{
    for (size_t i = 0; i < EFFECT_COUNT; i++)
        if (control != 0 && effects[i].control == control)
            return effect_apply(board, &effects[i], (unsigned char)data);
    /* Two groups of system states, told apart by their high byte alone. */
    switch (control >> 8) {
    case 0x08:
    case 0x10:
        board->lamps[BOARD_LAMP_STATUS] = BOARD_LIGHT_GREEN;
        return 0;
    case 0x09:
    case 0x11:
        board->lamps[BOARD_LAMP_STATUS] = BOARD_LIGHT_ORANGE_BLINKING;
        return 0;
    default:
        return -EINVAL;
    }
}

static int is_digit(char byte)
{
    return byte >= '0' && byte <= '9';
}

/* The line carries no answer, so that a text which the micro-controller does not know is no failure. */
void board_micro_text(struct board *board, const char *text)
{
    if ((text[0] == 'V' || text[0] == 'W') && is_digit(text[1]) && is_digit(text[2]) && text[3] == '\0') {
        const int32_t value = (text[1] - '0') * 10 + text[2] - '0';

        if (text[0] == 'V')
            board->pwm_duty = value;
        else
            board->pwm_frequency = value;
        return;
    }
    for (size_t i = 0; i < EFFECT_COUNT; i++)
        if (text[0] != '\0' && strcmp(effects[i].text, text) == 0)
            (void)effect_apply(board, &effects[i], 0);
}

/* The panel shows two of the lamps: status by the micro-controller's texts, alert by their last letter. */
void board_panel_light(struct board *board, char byte)
{
    const char alert[] = {'L', 'A', byte, '\0'}, status[] = {byte, '\0'};

    for (size_t i = 0; i < EFFECT_COUNT; i++) {
        const struct effect *effect = &effects[i];

        if (effect->kind != EFFECT_LAMP)
            continue;
        if (effect->which == BOARD_LAMP_STATUS && strcmp(effect->text, status) == 0)
            board->lamps[BOARD_LAMP_PANEL_STATUS] = effect->value;
        if (effect->which == BOARD_LAMP_ALERT && strcmp(effect->text, alert) == 0)
            board->lamps[BOARD_LAMP_PANEL_ALERT] = effect->value;
    }
}
