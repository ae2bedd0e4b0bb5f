// Mounts: a folder of the box in place of each source, and the table that programs read.
#include <algorithm>
#include <cerrno>

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

void BoxServer::answer_mount(const Question &question)
{
    const auto &[source, target, type] = question.texts;
    const std::string args = args_shown(question);
    std::unique_lock lock(lock_);
    const CallRow *row = call_row("mount", args);
    if (row != nullptr && !row->real) {
        record_add("mount " + args + (row->error != 0 ? error_shown(row->error) : ""));
        return talk_say(question.fd, BOX_RETURN, row->result, row->error);
    }
    lock.unlock();
    talk_say(question.fd, BOX_MOUNT, 0, 0, volume(source));
    const std::int64_t outcome = talk_outcome(question.fd);
    lock.lock();
    record_add("mount " + args + (outcome < 0 ? error_shown(static_cast<int>(-outcome)) : ""));
    if (outcome == 0) {
        mounts_.emplace_back(target, source + " " + target + " " + type + " rw,relatime 0 0\n");
        mounts_write();
    }
}

void BoxServer::answer_umount(const Question &question)
{
    const std::string args = args_shown(question);
    std::unique_lock lock(lock_);
    const CallRow *row = call_row("umount2", args);
    if (row != nullptr && !row->real) {
        record_add("umount2 " + args + (row->error != 0 ? error_shown(row->error) : ""));
        return talk_say(question.fd, BOX_RETURN, row->result, row->error);
    }
    lock.unlock();
    talk_say(question.fd, BOX_TELL);
    const std::int64_t outcome = talk_outcome(question.fd);
    lock.lock();
    record_add("umount2 " + args + (outcome < 0 ? error_shown(static_cast<int>(-outcome)) : ""));
    for (size_t i = mounts_.size(); outcome == 0 && i-- > 0;) {
        if (mounts_[i].first != question.texts[0])
            continue;
        mounts_.erase(mounts_.begin() + static_cast<std::ptrdiff_t>(i));
        mounts_write();
        break;
    }
}

// The table of mounts as programs read it, unless the test has made one of its own.
void BoxServer::mounts_write()
{
    std::string now;
    if (files_.read("/proc/mounts", &now) && now != mounts_shown_)
        return;
    mounts_shown_ = "box / tmpfs rw,relatime 0 0\n";
    for (const auto &[target, line] : mounts_)
        mounts_shown_ += line;
    files_.write("/proc/mounts", mounts_shown_, 0644);
}
