// Runs a program to its end without a shell.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

struct Finished {
    int status = -1; // exit status; -signal when one ended it
    std::string out; // standard output and error together
};

// `words` is the path and the arguments. Must be called from a process of one thread.
inline Finished run_program(std::vector<std::string> words)
{
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Finished finished;
    int ends[2];
    if (pipe(ends) != 0)
        return finished;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(ends[1]);
    char text[4096];
    for (ssize_t count; (count = read(ends[0], text, sizeof(text))) > 0;)
        finished.out.append(text, static_cast<size_t>(count));
    close(ends[0]);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid)
        finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return finished;
}
