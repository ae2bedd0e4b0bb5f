// The keys that patches are signed with. Public ones lie in a folder as <key type>.pem, the form in which the
// appliance's image ships them; private ones below it, in private/.
#pragma once

#include <string>

#include "platform/codesign/signed_archive.h"

// Makes the pair of a key type unless the folder has it. False, told on standard error, when that fails.
[[nodiscard]] bool keys_ensure(const std::string &folder, int key_type);

// Signs a message with the private key of that type; with `stranger` by a fresh one that nobody knows. False, told on
// standard error, when that fails.
[[nodiscard]] bool message_sign(const std::string &folder, int key_type, bool stranger, std::string_view message,
                                codesign::SignatureLine *out);
