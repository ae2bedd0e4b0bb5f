/*
 * Three nodes:
 *   /dev/norvbios           the board's requests; readable while an event waits
 *   /dev/norvboard          takes scenario lines; gives the transcript, which ends where it stands and may be read on
 *   /dev/norvboard_drawing  gives the board as a drawing
 */
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/poll.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/timekeeping.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

#include "norvboard.h"

#define WRITE_BYTES 65536 /* taken at once */
#define LINE_BYTES 4096   /* of a scenario line with its NUL */
#define DRAWING_BYTES 8192

static DECLARE_WAIT_QUEUE_HEAD(event_waiters);

static int memory_in(void *context, void *to, uint64_t from, size_t bytes)
{
    return copy_from_user(to, (const void __user *)(uintptr_t)from, bytes) == 0 ? 0 : -EFAULT;
}

static int memory_out(void *context, uint64_t to, const void *from, size_t bytes)
{
    return copy_to_user((void __user *)(uintptr_t)to, from, bytes) == 0 ? 0 : -EFAULT;
}

static void waiters_wake(void)
{
    if (board_event_pending(&norv_board) != 0)
        wake_up_interruptible(&event_waiters);
}

static long bios_ioctl(struct file *file, unsigned int request, unsigned long argument)
{
    static const struct board_memory memory = {memory_in, memory_out, NULL};
    long result;

    mutex_lock(&norv_board_lock);
    result = board_ioctl(&norv_board, ktime_get_boottime_seconds(), request, argument, &memory);
    waiters_wake(); /* buttons may be wired to events */
    mutex_unlock(&norv_board_lock);
    return result;
}

static __poll_t bios_poll(struct file *file, poll_table *table)
{
    poll_wait(file, &event_waiters, table);
    return READ_ONCE(norv_board.event_count) != 0 ? EPOLLIN | EPOLLRDNORM : 0;
}

/* A line that has not ended yet, of one open file. */
struct scenario {
    unsigned int lines; /* that came before it */
    size_t length;
    char line[LINE_BYTES];
};

static int line_end(struct scenario *scenario)
{
    char error[BOARD_NOTE_ROOM] = "too long";
    int result = -EINVAL;

    scenario->lines++;
    if (scenario->length < sizeof scenario->line) {
        scenario->line[scenario->length] = '\0';
        result = board_scenario_line(&norv_board, ktime_get_boottime_seconds(), scenario->line, error, sizeof error);
    }
    scenario->length = 0;
    if (result != 0)
        board_note(&norv_board, "scenario line %u: %s", scenario->lines, error);
    return result;
}

/* Each write may cut the text anywhere. A bad line takes the rest of its write with it. */
static ssize_t scenario_write(struct file *file, const char __user *from, size_t count, loff_t *at)
{
    struct scenario *scenario = ((struct seq_file *)file->private_data)->private;
    const size_t bytes = min_t(size_t, count, WRITE_BYTES);
    char *text = memdup_user(from, bytes);
    int result = 0;

    if (IS_ERR(text))
        return PTR_ERR(text);
    mutex_lock(&norv_board_lock);
    for (size_t i = 0; i < bytes && result == 0; i++) {
        if (text[i] != '\n')
            scenario->line[scenario->length++] = text[i];
        if (text[i] == '\n' || scenario->length == sizeof scenario->line)
            result = line_end(scenario);
    }
    waiters_wake();
    mutex_unlock(&norv_board_lock);
    kfree(text);
    return result != 0 ? result : (ssize_t)bytes;
}

/* The line that is being read and where the next one is. Guarded by the board's lock, held from start to stop. */
static char transcript_line[BOARD_NOTE_ROOM];
static uint64_t transcript_next;

static void *transcript_take(uint64_t cursor)
{
    transcript_next = cursor;
    if (board_transcript_next(&norv_board, &transcript_next, transcript_line, sizeof transcript_line) == 0)
        return NULL;
    return transcript_line;
}

static void *transcript_start(struct seq_file *file, loff_t *at)
{
    mutex_lock(&norv_board_lock);
    return transcript_take((uint64_t)*at);
}

static void *transcript_follow(struct seq_file *file, void *line, loff_t *at)
{
    *at = (loff_t)transcript_next;
    return transcript_take(transcript_next);
}

static void transcript_stop(struct seq_file *file, void *line)
{
    mutex_unlock(&norv_board_lock);
}

static int transcript_show(struct seq_file *file, void *line)
{
    seq_printf(file, "%s\n", (const char *)line);
    return 0;
}

static int transcript_open(struct inode *inode, struct file *file)
{
    static const struct seq_operations operations = {
        .start = transcript_start,
        .next = transcript_follow,
        .stop = transcript_stop,
        .show = transcript_show,
    };

    file->private_data = NULL; /* the misc device, which seq_open would take for a fault */
    return __seq_open_private(file, &operations, sizeof(struct scenario)) != NULL ? 0 : -ENOMEM;
}

/* The last line need not end. */
static int transcript_release(struct inode *inode, struct file *file)
{
    struct scenario *scenario = ((struct seq_file *)file->private_data)->private;

    mutex_lock(&norv_board_lock);
    if (scenario->length > 0)
        (void)line_end(scenario);
    waiters_wake();
    mutex_unlock(&norv_board_lock);
    return seq_release_private(inode, file);
}

static int drawing_show(struct seq_file *file, void *unused)
{
    char *drawing = kmalloc(DRAWING_BYTES, GFP_KERNEL);
    size_t length;

    if (drawing == NULL)
        return -ENOMEM;
    mutex_lock(&norv_board_lock);
    length = board_draw(&norv_board, ktime_get_boottime_seconds(), drawing, DRAWING_BYTES);
    mutex_unlock(&norv_board_lock);
    seq_write(file, drawing, length);
    kfree(drawing);
    return 0;
}

static int drawing_open(struct inode *inode, struct file *file)
{
    file->private_data = NULL;
    return single_open(file, drawing_show, NULL);
}

static const struct file_operations bios_operations = {
    .owner = THIS_MODULE,
    .unlocked_ioctl = bios_ioctl,
    .compat_ioctl = compat_ptr_ioctl,
    .poll = bios_poll,
    .llseek = noop_llseek,
};

static const struct file_operations board_operations = {
    .owner = THIS_MODULE,
    .open = transcript_open,
    .read = seq_read,
    .write = scenario_write,
    .llseek = seq_lseek,
    .release = transcript_release,
};

static const struct file_operations drawing_operations = {
    .owner = THIS_MODULE,
    .open = drawing_open,
    .read = seq_read,
    .llseek = seq_lseek,
    .release = single_release,
};

static struct miscdevice devices[] = {
    {.minor = MISC_DYNAMIC_MINOR, .name = "norvbios", .fops = &bios_operations},
    {.minor = MISC_DYNAMIC_MINOR, .name = "norvboard", .fops = &board_operations},
    {.minor = MISC_DYNAMIC_MINOR, .name = "norvboard_drawing", .fops = &drawing_operations},
};

int norv_devices_add(void)
{
    for (size_t i = 0; i < ARRAY_SIZE(devices); i++) {
        const int result = misc_register(&devices[i]);

        if (result != 0) {
            while (i-- > 0)
                misc_deregister(&devices[i]);
            return result;
        }
    }
    return 0;
}

void norv_devices_remove(void)
{
    for (size_t i = 0; i < ARRAY_SIZE(devices); i++)
        misc_deregister(&devices[i]);
}
