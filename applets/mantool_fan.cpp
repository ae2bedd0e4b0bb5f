#include <cctype>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "applets/mantool.h"
#include "autocleanup/unique.h"
#include "external/hardware_model.h"
#include "fan/fan_path.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"
#include "product.h"

static constexpr int kMicropFanType = 6; // fans that the micro-controller checks
static constexpr int kMicropAsks = 5;    // one second apart

enum class FanState { kRunning, kStopped, kUnknown };

// As the fan controller's driver tells: the speed, in a file per fan.
static FanState controller_fan_state(int fan)
{
    char folder[256], path[512];
    if (fan_path_get(0, folder, sizeof(folder)) != 0 ||
        NLIBCStrSnprintf(path, sizeof(path), "%s%s%d_%s", folder, "fan", fan, "input") < 0)
        return FanState::kUnknown;
    const UniqueFile file(fopen(path, "re"));
    if (!file) {
        printf("Fail to open file:%s\n", path);
        return FanState::kUnknown;
    }
    int speed = 0;
    if (fscanf(file.get(), "%d", &speed) != 1) {
        printf("Fail to read %s\n", path);
        return FanState::kUnknown;
    }
    return speed != 0 ? FanState::kRunning : FanState::kStopped;
}

static int microp_write(const char *text)
{
    return man_board_ask(NORVIO_MICROP_WRITE, "NORVIO_MICROP_WRITE", const_cast<char *>(text));
}

// The micro-controller only tells of a failure, so a fan runs when none is told for a while.
static FanState microp_fan_state()
{
    if (microp_write("u") != 0)
        return FanState::kUnknown;
    FanState state = FanState::kRunning;
    for (int ask = 0; ask < kMicropAsks && state == FanState::kRunning; ask++) {
        MicropExchange answer = {"", 1};
        if (ask > 0)
            sleep(1);
        if (man_board_ask(NORVIO_MICROP_READ_BYTE, "NORVIO_MICROP_READ_BYTE", &answer) != 0)
            state = FanState::kUnknown;
        else if (answer.text[0] == kProductMicropFanFailed)
            state = FanState::kStopped;
        else
            NORV_LOG(LOG_ERR, "%s: Get Microp return other than fan fail.", __func__);
    }
    microp_write("t");
    return state;
}

static FanState board_fan_state(int fan)
{
    int32_t types[3] = {};
    if (board_request(NORVIO_GET_MODULE_TYPE, types) < 0) {
        NORV_LOG(LOG_ERR, "Norvbios ioctl NORVIO_GET_MODULE_TYPE failed !!");
        return FanState::kUnknown;
    }
    if (types[0] == kMicropFanType)
        return microp_fan_state();
    int32_t status[3] = {fan, 0, 0}; // number; whether it turns; its speed
    if (man_board_ask(NORVIO_GET_FAN_STATUS_NUMBER, "NORVIO_GET_FAN_STATUS", status) != 0)
        return FanState::kUnknown;
    return status[1] != 0 ? FanState::kRunning : FanState::kStopped;
}

int man_fan_status_get(int argc, char * /*argv*/[])
{
    static constexpr const char *kFormats[] = {"Total Fans: %d, Fan %d Status: start\n",
                                               "Total Fans: %d, Fan %d Status: stop\n",
                                               "Total Fans: %d, Fan %d status can't get\n"};
    if (argc != 2)
        return mantool_usage_error();
    int32_t count = 0;
    if (man_board_ask(NORVIO_GET_FAN_STATUS, "NORVIO_GET_FAN_STATUS", &count) != 0)
        return -1;
    const bool has_controller = NLIBCConfIsYes("supportadt7490");
    int result = 0;
    for (int fan = 1; fan <= count; fan++) {
        const FanState state = has_controller ? controller_fan_state(fan) : board_fan_state(fan);
        printf(kFormats[static_cast<int>(state)], count, fan);
        if (state == FanState::kUnknown)
            result = -1;
    }
    return result;
}

int man_fan_pwm_set(int argc, char *argv[])
{
    if (argc != 3)
        return mantool_usage_error();
    if (!hardware_can(kHardwareFanPwm)) {
        puts("This model not support the PWM control.");
        return -1;
    }
    const char *text = argv[2];
    if (strlen(text) != 3 || (text[0] != 'V' && text[0] != 'W') || isdigit(static_cast<unsigned char>(text[1])) == 0 ||
        isdigit(static_cast<unsigned char>(text[2])) == 0)
        return mantool_usage_error();
    return microp_write(text);
}
