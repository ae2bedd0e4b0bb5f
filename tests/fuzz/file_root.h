// A machine of its own for readers of fixed paths, and for commands that would act on the true one: a root directory
// with nothing in it but what the target puts there, no program, no device, no network, no board, no clock to set.
#pragma once

#include <span>
#include <string_view>

// Enters it, once, before the process has a second thread: a fuzz target does so in LLVMFuzzerInitialize. Nothing is
// logged from then on. Paths below the folder that the process was started in still work when they are relative. Ends
// the process with kFileRootNone where the kernel gives no namespaces.
void file_root_enter();
inline constexpr int kFileRootNone = 125;

// Makes a file, and the folders above it.
void file_root_put(const char *path, std::string_view text);

struct FuzzFile {
    char letter;
    const char *path; // or the name of a variable of the environment
    void (*read)();
};
// The first byte of an input is the letter of a file, which then holds the rest; with a capital letter it is not there.
// Its reader is called, and the file goes again unless it `stays`.
void file_root_run(std::span<const FuzzFile> files, std::string_view input, bool stays);
