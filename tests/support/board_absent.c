/* A board that answers nothing, for a tree without the simulated one. */
#include "platform/board/board.h"

void board_init(struct board *board, int64_t now_s)
{
    (void)now_s;
    memset(board, 0, sizeof(*board));
}

long board_ioctl(struct board *board, int64_t now_s, uint32_t request, uint64_t argument,
                 const struct board_memory *memory)
{
    (void)board, (void)now_s, (void)request, (void)argument, (void)memory;
    return -ENOTTY;
}

uint32_t board_event_pending(const struct board *board)
{
    (void)board;
    return 0;
}

int board_transcript_next(const struct board *board, uint64_t *cursor, char *line, size_t room)
{
    (void)board, (void)cursor, (void)line, (void)room;
    return 0;
}

int board_scenario_load(struct board *board, int64_t now_s, const char *text, size_t length, char *error,
                        size_t error_room)
{
    (void)board, (void)now_s, (void)text, (void)length;
    snprintf(error, error_room, "this tree has no simulated board");
    return -EINVAL;
}
