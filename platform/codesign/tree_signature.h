// The signature of a folder: Norvessa.sig at its top, which vouches for all else below it.
//
//   NORVSIG1
//   signature <key type> <ECDSA signature of the folder's listing: DER, in hexadecimal>
//
// The listing is that of manifest.h.
#pragma once

#include <string>

#include "platform/codesign/signed_archive.h"

namespace codesign
{

inline constexpr char kTreeMagic[] = "NORVSIG1\n";
inline constexpr char kTreeSignatureName[] = "Norvessa.sig";
inline constexpr int kTreeKeyType = 0;

[[nodiscard]] std::string tree_signature_text(const std::vector<SignatureLine> &signatures);
// False when the text is not of that form.
[[nodiscard]] bool tree_signature_parse(std::string_view text, std::vector<SignatureLine> *out);

// Whether a folder is as it was signed. Anything odd: no.
[[nodiscard]] bool tree_is_signed(const std::string &folder, const std::vector<SignatureLine> &signatures,
                                  const std::string &key_folder);

} // namespace codesign
