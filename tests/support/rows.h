// How rows of tables say what is done to a box before its run, what is run, and what the record must have.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/support/sandbox.h"

// Steps on a box; none by itself. They are joined by '+'.
class Change
{
  public:
    Change() = default;
    template <typename Step> Change(Step step) : steps_{std::move(step)} {}
    void operator()(Sandbox &box) const
    {
        for (const auto &step : steps_)
            step(box);
    }
    Change operator+(const Change &next) const
    {
        Change both = *this;
        both.steps_.insert(both.steps_.end(), next.steps_.begin(), next.steps_.end());
        return both;
    }

  private:
    std::vector<std::function<void(Sandbox &)>> steps_{};
};

inline const Change kNoChange;

inline Change file(const std::string &path, const std::string &content = "")
{
    return [=](Sandbox &box) { box.file(path, content); };
}
inline Change directory(const std::string &path)
{
    return [=](Sandbox &box) { box.directory(path); };
}
inline Change gone(const std::string &path)
{
    return [=](Sandbox &box) { box.remove(path); };
}
// Of two answers of a program the first counts.
inline Change program(const std::string &path, const ProgramRow &row)
{
    return [=](Sandbox &box) { box.program(path, {row}); };
}
inline Change call(const CallRow &row)
{
    return [=](Sandbox &box) { box.call(row); };
}

// The lines of a text but for empty ones, as patterns for Record::in_order.
inline std::vector<std::string> lines(std::string_view text)
{
    std::vector<std::string> all;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        if (end > at)
            all.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return all;
}

// The words of a command as the record shows them: '...' is one with blanks, or an empty one. `first` comes in front of
// them, unless it is "".
inline std::vector<std::string> words(std::string_view text, const std::string &first = "")
{
    std::vector<std::string> all;
    if (!first.empty())
        all.push_back(first);
    for (size_t at = 0; (at = text.find_first_not_of(' ', at)) != std::string_view::npos;) {
        const bool is_quoted = text[at] == '\'';
        at += is_quoted;
        const size_t end = std::min(text.find(is_quoted ? '\'' : ' ', at), text.size());
        all.emplace_back(text.substr(at, end - at));
        at = std::min(end + 1, text.size());
    }
    return all;
}

// What a file holds; "" when there is none.
inline std::string text_of(const Sandbox &box, std::string_view path)
{
    return box.exists(path) ? box.read_file(path) : "";
}

// Somebody who locks a file until the end of the input, with flock's option `kind`.
inline Process lock_holder(Sandbox &box, const std::string &path, const std::string &kind = "-x")
{
    box.host_program("/usr/bin/flock");
    Process holder = box.start({"/usr/bin/flock", kind, path, "-c", "echo held; read line"},
                               {.input_open = true, .leaves = {path, "/tmp/*"}});
    while (holder.running() && holder.out() != "held\n")
        usleep(1000);
    return holder;
}
