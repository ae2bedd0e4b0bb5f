// Mounts: a folder of the box in place of each source, and the table that programs read.
#include <algorithm>
#include <cerrno>
#include <iterator>

#include "tests/support/box_server.h"
#include "tests/support/box_talk.h"
#include "tests/support/box_text.h"

std::string BoxServer::volume(const std::string &source)
{
    std::string name = source.empty() || source[0] != '/' ? source : source.substr(1);
    std::replace(name.begin(), name.end(), '/', ':');
    if (name.empty())
        name = "none";
    name.insert(0, BOX_VOLUMES "/");
    files_.directory(name, 0755);
    return name;
}

// The program makes the call itself, unless a row of the test answers it, and waits until its outcome is noted.
void BoxServer::answer_mounts(const Question &question)
{
    const bool mounts = question.ask.call == BOX_mount;
    const std::string name = mounts ? "mount" : "umount2";
    const std::string args = args_shown(question);
    std::unique_lock lock(lock_);
    const CallRow *row = call_row(name, args);
    if (row != nullptr && !row->real) {
        record_add(name + " " + args + (row->error != 0 ? error_shown(row->error) : ""));
        return talk_say(question.fd, BOX_RETURN, row->result, row->error);
    }
    const bool is_there = std::any_of(mounts_.begin(), mounts_.end(), [&](const Mount &mount) {
        return mount.source == question.texts[0] && mount.target == question.texts[1];
    });
    if (mounts && is_there) { // the kernel does not put a file system upon itself
        record_add(name + " " + args + error_shown(EBUSY));
        return talk_say(question.fd, BOX_RETURN, 0, EBUSY);
    }
    lock.unlock();
    if (mounts)
        talk_say(question.fd, BOX_MOUNT, 0, 0, volume(question.texts[0]));
    else
        talk_say(question.fd, BOX_TELL);
    const std::int64_t outcome = talk_outcome(question.fd);
    lock.lock();
    record_add(name + " " + args + (outcome < 0 ? error_shown(static_cast<int>(-outcome)) : ""));
    if (outcome == 0 && mounts)
        mounts_.push_back({.source = question.texts[0], .target = question.texts[1], .type = question.texts[2]});
    else if (outcome == 0)
        mount_forget(question.texts[0]);
    mounts_write();
    talk_say(question.fd, BOX_RETURN);
}

// The last one there hides those before it.
void BoxServer::mount_forget(const std::string &target)
{
    const auto last =
        std::find_if(mounts_.rbegin(), mounts_.rend(), [&](const Mount &mount) { return mount.target == target; });
    if (last != mounts_.rend())
        mounts_.erase(std::next(last).base());
}

// The table of mounts as programs read it, unless the test has made one of its own.
void BoxServer::mounts_write()
{
    std::string now;
    if (files_.read("/proc/mounts", &now) && now != mounts_shown_)
        return;
    mounts_shown_ = "box / tmpfs rw,relatime 0 0\n";
    for (const auto &[source, target, type] : mounts_)
        mounts_shown_.append(source).append(" ").append(target).append(" ").append(type.empty() ? "none" : type) +=
            " rw,relatime 0 0\n";
    files_.write("/proc/mounts", mounts_shown_, 0644);
}
