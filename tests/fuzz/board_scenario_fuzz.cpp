// Scenario text, and the same bytes on the front panel's line.
// Covers: platform/board/board_scenario.c platform/board/board_panel.c
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/board/board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static board board;
    static char drawing[8192];
    char text[64];
    board_init(&board, 0);
    board_scenario_load(&board, 0, reinterpret_cast<const char *>(data), size, text, sizeof text);
    board_panel_write(&board, data, size);
    board_draw(&board, 1, drawing, sizeof drawing);
    for (const board_request_info &row : board_requests) {
        unsigned char record[BOARD_REQUEST_ROOM] = {};
        board_request(&board, 1, row.code, record, sizeof record, 1);
    }
    for (uint64_t cursor = 0; board_transcript_next(&board, &cursor, text, sizeof text) == 1;)
        if (text[sizeof text - 1] != '\0')
            abort();
    return 0;
}
