// The banner line, and the one option that the daemons know.
#pragma once

// The date that the banner's year comes from. It is a fixed word, not the day of the build.
inline constexpr char kBannerDate[] = "Aug  4 2021";

// Prints the banner: the deployment's words around what follows the last space of `date`, of which the first 15
// characters count. Prints nothing when there is no space.
void banner_print(const char *date = kBannerDate);

// Whether "--help" is the single argument.
[[nodiscard]] bool help_is_asked(int argc, char *argv[]);
