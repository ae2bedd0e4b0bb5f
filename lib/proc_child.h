// What a child does to itself between its start and its work.
#pragma once

// Carries out ForkFlag bits in the order that NLIBCFork keeps.
//   own_memory  false while the child still runs in its caller's memory: steps that would change it are left out, so
//               kForkCleanEnv and kForkTwice are then the caller's
void child_prepare(unsigned flags, bool own_memory);

// Points standard streams at /dev/null; bit n of `streams` is descriptor n. Without a /dev/null they stay as they are.
void streams_to_null(unsigned streams);

// The "PATH=..." entry of the environment; NULL when unset.
[[nodiscard]] char *environment_path();
