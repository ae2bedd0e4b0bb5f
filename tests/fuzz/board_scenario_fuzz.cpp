// Scenario text, and the same bytes on the front panel's line.
// Covers: platform/board/board_scenario.c platform/board/board_panel.c
#include <cstddef>

#include "platform/board/board.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    static board board;
    static char drawing[8192];
    char text[64];
    board_init(&board, 0);
    board_scenario_load(&board, 0, input.data(), input.size(), text, sizeof text);
    board_panel_write(&board, bytes_of(input).data(), input.size());
    board_draw(&board, 1, drawing, sizeof drawing);
    for (const board_request_info &row : board_requests) {
        unsigned char record[BOARD_REQUEST_ROOM] = {};
        board_request(&board, 1, row.code, record, sizeof record, 1);
    }
    for (uint64_t cursor = 0; board_transcript_next(&board, &cursor, text, sizeof text) == 1;)
        check_ended(text);
}
