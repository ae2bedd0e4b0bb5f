/*
 * Two requests of md arrays that Linux does not have:
 *   0x80040961  status, int32: 0 normal, 1 degraded, 2 crashed while it ran, 3 crashed before it could run
 *   0x80180960  rebuild, three int64: 1 while members are being made whole, else 0; sectors done; sectors in all
 *
 * Both are answered from the array's own files in sysfs, read on a mount that no program sees. Places of the array that
 * no member fills do not make it degraded, as Linux would count it: only members that it lists are judged.
 */
#include <linux/blkdev.h>
#include <linux/file.h>
#include <linux/fs.h>
#include <linux/ftrace.h>
#include <linux/module.h>
#include <linux/mount.h>
#include <linux/slab.h>
#include <linux/uaccess.h>

#include "norvboard.h"

#define REQUEST_STATUS 0x80040961u
#define REQUEST_REBUILD 0x80180960u

#define MEMBERS 64
#define NAME_ROOM (DISK_NAME_LEN + 8) /* "dev-" and a member */
#define PATH_ROOM 160
#define VALUE_ROOM 64

enum status { STATUS_NORMAL, STATUS_DEGRADED, STATUS_CRASHED, STATUS_NOT_STARTED };

static struct vfsmount *sysfs;

static struct file *file_open(const char *array, const char *name, int flags)
{
    char path[PATH_ROOM];

    snprintf(path, sizeof path, "devices/virtual/block/%s/md/%s", array, name);
    return file_open_root_mnt(sysfs, path, O_RDONLY | flags, 0);
}

/* Reads a file of the array into `value`, without the newline. Returns 0 or a negative errno value. */
static int value_read(const char *array, const char *name, char value[VALUE_ROOM])
{
    struct file *file = file_open(array, name, 0);
    loff_t at = 0;
    ssize_t length;

    if (IS_ERR(file))
        return (int)PTR_ERR(file);
    length = kernel_read(file, value, VALUE_ROOM - 1, &at);
    fput(file);
    if (length < 0)
        return (int)length;
    value[length] = '\0';
    strim(value);
    return 0;
}

struct members {
    struct dir_context context;
    unsigned int count;
    bool too_many;
    char names[MEMBERS][NAME_ROOM];
};

static bool member_take(struct dir_context *context, const char *name, int length, loff_t at, u64 inode,
                        unsigned int type)
{
    struct members *members = container_of(context, struct members, context);

    if (length < 4 || length >= NAME_ROOM || memcmp(name, "dev-", 4) != 0)
        return true;
    members->too_many = members->count == MEMBERS;
    if (!members->too_many)
        memcpy(members->names[members->count++], name, (size_t)length); /* the rest is zero already */
    return !members->too_many;
}

static int members_list(const char *array, struct members *members)
{
    struct file *folder = file_open(array, "", O_DIRECTORY);
    int result;

    if (IS_ERR(folder))
        return (int)PTR_ERR(folder);
    members->context.actor = member_take;
    result = iterate_dir(folder, &members->context);
    fput(folder);
    return result == 0 && members->too_many ? -E2BIG : result;
}

struct judgement {
    int good, bad;
};

/* A member that goes while we look counts as one that is not listed. A spare is no part of the array's data. */
static void member_judge(const char *array, const char *member, struct judgement *judgement)
{
    char name[NAME_ROOM + 8], state[VALUE_ROOM], slot[VALUE_ROOM];

    snprintf(name, sizeof name, "%s/state", member);
    if (value_read(array, name, state) != 0)
        return;
    snprintf(name, sizeof name, "%s/slot", member);
    if (value_read(array, name, slot) != 0)
        return;
    if (strstr(state, "faulty") != NULL)
        judgement->bad++;
    else if (strstr(state, "in_sync") != NULL)
        judgement->good++;
    else if (strcmp(slot, "none") != 0)
        judgement->bad++; /* it is being rebuilt */
}

/* How many members have to be good. Where that depends on which ones they are, md says itself when it is broken. */
static int members_needed(const char *level, int places)
{
    static const struct {
        const char *level;
        int spared;
    } rules[] = {{"linear", 0}, {"raid0", 0}, {"raid4", 1}, {"raid5", 1}, {"raid6", 2}};

    for (size_t i = 0; i < ARRAY_SIZE(rules); i++)
        if (strcmp(rules[i].level, level) == 0)
            return places - rules[i].spared;
    return 1;
}

static int status_get(const char *array, struct members *members, int32_t *status)
{
    char state[VALUE_ROOM], level[VALUE_ROOM], text[VALUE_ROOM];
    struct judgement judgement = {0, 0};
    int places, result;

    if (value_read(array, "array_state", state) != 0 || strcmp(state, "clear") == 0)
        return -ENODEV;
    if (strcmp(state, "inactive") == 0) {
        *status = STATUS_NOT_STARTED;
        return 0;
    }
    result = value_read(array, "level", level);
    if (result == 0)
        result = value_read(array, "raid_disks", text);
    if (result == 0)
        result = sscanf(text, "%d", &places) == 1 ? members_list(array, members) : -EIO;
    if (result != 0)
        return result;
    for (unsigned int i = 0; i < members->count; i++)
        member_judge(array, members->names[i], &judgement);
    if (strcmp(state, "broken") == 0 || judgement.good < members_needed(level, places))
        *status = STATUS_CRASHED;
    else
        *status = judgement.bad > 0 ? STATUS_DEGRADED : STATUS_NORMAL;
    return 0;
}

static int rebuild_get(const char *array, uint64_t words[3])
{
    static const char *const running[] = {"resync", "recover", "reshape"};
    char text[VALUE_ROOM];
    unsigned long long done = 0, total = 0;

    memset(words, 0, 3 * sizeof words[0]);
    if (value_read(array, "array_state", text) != 0 || strcmp(text, "clear") == 0)
        return -ENODEV;
    if (value_read(array, "sync_action", text) != 0) /* levels without a copy have none */
        return 0;
    for (size_t i = 0; i < ARRAY_SIZE(running); i++)
        words[0] |= strcmp(text, running[i]) == 0;
    if (words[0] == 0)
        return 0;
    /* "none" or "delayed" while it waits: the size of a member, in KiB, is what will have to be done. */
    if (value_read(array, "sync_completed", text) != 0 || sscanf(text, "%llu / %llu", &done, &total) != 2) {
        done = 0;
        if (value_read(array, "component_size", text) == 0 && sscanf(text, "%llu", &total) == 1)
            total *= 2;
    }
    words[1] = done;
    words[2] = total;
    return 0;
}

static int status_answer(const char *array, void __user *to)
{
    struct members *members = kzalloc(sizeof *members, GFP_KERNEL);
    int32_t status = 0;
    int result;

    if (members == NULL)
        return -ENOMEM;
    result = status_get(array, members, &status);
    kfree(members);
    if (result == 0)
        norv_note("md_status %s -> %d", array, status);
    else
        norv_note("md_status %s = %d", array, result);
    if (result == 0 && copy_to_user(to, &status, sizeof status) != 0)
        result = -EFAULT;
    return result;
}

static int rebuild_answer(const char *array, void __user *to)
{
    uint64_t words[3];
    int result = rebuild_get(array, words);

    if (result == 0)
        norv_note("md_rebuild %s -> %llu %llu %llu", array, words[0], words[1], words[2]);
    else
        norv_note("md_rebuild %s = %d", array, result);
    if (result == 0 && copy_to_user(to, words, sizeof words) != 0)
        result = -EFAULT;
    return result;
}

/* In the place of md_ioctl, for the two requests alone. The array stays as long as its device is open. */
static int md_request(struct block_device *device, fmode_t mode, unsigned int request, unsigned long argument)
{
    const char *array = device->bd_disk->disk_name;
    void __user *to = (void __user *)argument;

    return request == REQUEST_STATUS ? status_answer(array, to) : rebuild_answer(array, to);
}

static void notrace md_ioctl_entered(unsigned long ip, unsigned long parent_ip, struct ftrace_ops *ops,
                                     struct ftrace_regs *fregs)
{
    const struct pt_regs *regs = ftrace_get_regs(fregs);
    const unsigned int request = regs != NULL ? (unsigned int)regs_get_kernel_argument((struct pt_regs *)regs, 2) : 0;

    if (request == REQUEST_STATUS || request == REQUEST_REBUILD)
        ftrace_instruction_pointer_set(fregs, (unsigned long)md_request);
}

static struct ftrace_ops hook = {
    .func = md_ioctl_entered,
    .flags = FTRACE_OPS_FL_SAVE_REGS | FTRACE_OPS_FL_IPMODIFY,
};
static bool hooked;

/* Returns 0, -EINVAL while md is not there, or another negative errno value. */
static int hook_add(void)
{
    static char function[] = "md_ioctl";
    int result = ftrace_set_filter(&hook, (unsigned char *)function, (int)strlen(function), 1);

    if (result == 0)
        result = register_ftrace_function(&hook);
    hooked = result == 0;
    return result;
}

/* md may come later than the board, and go again. */
static int module_changed(struct notifier_block *block, unsigned long action, void *data)
{
    const struct module *module = data;

    if (strcmp(module->name, "md_mod") != 0)
        return NOTIFY_OK;
    if (action == MODULE_STATE_COMING && !hooked) {
        const int result = hook_add();

        if (result != 0)
            pr_err("norvboard: md's requests cannot be answered: %d\n", result);
    } else if (action == MODULE_STATE_GOING && hooked) {
        (void)unregister_ftrace_function(&hook);
        hooked = false;
    }
    return NOTIFY_OK;
}

static struct notifier_block module_notifier = {.notifier_call = module_changed};

int norv_md_requests_add(void)
{
    struct file_system_type *type = get_fs_type("sysfs");
    int result;

    if (type == NULL)
        return -ENODEV;
    sysfs = kern_mount(type);
    if (IS_ERR(sysfs))
        return (int)PTR_ERR(sysfs);
    result = hook_add();
    if (result == -EINVAL) /* no md yet */
        result = 0;
    if (result == 0)
        result = register_module_notifier(&module_notifier);
    if (result != 0) {
        if (hooked)
            (void)unregister_ftrace_function(&hook);
        kern_unmount(sysfs);
    }
    return result;
}
