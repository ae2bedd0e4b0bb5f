#include <linux/init.h>
#include <linux/module.h>
#include <linux/timekeeping.h>

#include "norvboard.h"

struct board norv_board;
DEFINE_MUTEX(norv_board_lock);

void norv_note(const char *format, ...)
{
    char line[BOARD_NOTE_ROOM];
    va_list list;

    va_start(list, format);
    vsnprintf(line, sizeof line, format, list);
    va_end(list);
    mutex_lock(&norv_board_lock);
    board_note(&norv_board, "%s", line);
    mutex_unlock(&norv_board_lock);
}

/* The last one cannot go again. */
static const struct {
    int (*add)(void);
    void (*remove)(void);
} parts[] = {
    {norv_sysctls_add, norv_sysctls_remove},
    {norv_hosts_add, norv_hosts_remove},
    {norv_devices_add, norv_devices_remove},
    {norv_md_requests_add, NULL},
};

static int __init norvboard_init(void)
{
    board_init(&norv_board, ktime_get_boottime_seconds());
    for (size_t i = 0; i < ARRAY_SIZE(parts); i++) {
        const int result = parts[i].add();

        if (result != 0) {
            while (i-- > 0)
                parts[i].remove();
            return result;
        }
    }
    return 0;
}
module_init(norvboard_init);

MODULE_DESCRIPTION("Simulated board of a storage appliance");
MODULE_LICENSE("GPL");
