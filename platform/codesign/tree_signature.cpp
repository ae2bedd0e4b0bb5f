#include "platform/codesign/tree_signature.h"

namespace codesign
{

std::string tree_signature_text(const std::vector<SignatureLine> &signatures)
{
    return kTreeMagic + signatures_text(signatures);
}

bool tree_signature_parse(std::string_view text, std::vector<SignatureLine> *out)
{
    if (!text.starts_with(kTreeMagic))
        return false;
    text.remove_prefix(sizeof(kTreeMagic) - 1);
    return signatures_parse(&text, out) && text.empty();
}

bool tree_is_signed(const std::string &folder, const std::vector<SignatureLine> &signatures,
                    const std::string &key_folder)
{
    std::vector<Member> members;
    std::string in_the_way;
    if (!tree_list(folder, kTreeSignatureName, &members, &in_the_way))
        return false;
    for (const SignatureLine &line : signatures)
        if (line.key_type == kTreeKeyType)
            return signature_is_good(key_folder, line.key_type, members_text(members), line.signature);
    return false;
}

} // namespace codesign
