// The board's clock chip, which keeps Coordinated Universal Time. Where not said otherwise failures are told on
// standard output.
#pragma once

#include <ctime>

// Sets the chip. Returns 0; -1 with 0x0900 or 0x8100.
[[nodiscard]] int RtcTimeWrite(time_t time);

// The same without a word.
[[nodiscard]] int rtc_time_set(time_t time);

// Reads the chip as local time. In `tm` the year is the full year and the month counts from 1. Returns 0; -1 with
// 0x0900 or 0x8100.
[[nodiscard]] int RtcTimeRead(struct tm *tm);
