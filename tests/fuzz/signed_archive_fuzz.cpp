// The head of a signed archive and the signature of a folder, both read before anything vouches for them. What is
// accepted, written out and read again must be the same.
// Covers: platform/codesign/signed_archive_head.cpp platform/codesign/manifest.cpp(path_is_clean word_cut member_parse)
// Covers: platform/codesign/tree_signature.cpp(tree_signature_parse)
#include <vector>

#include "platform/codesign/tree_signature.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void check_same(const std::vector<codesign::SignatureLine> &a, const std::vector<codesign::SignatureLine> &b)
{
    check(codesign::signatures_text(a) == codesign::signatures_text(b));
}

void check_head(std::string_view bytes)
{
    codesign::ArchiveHead head, again;
    if (!codesign::head_parse(bytes, &head))
        return;
    check(head.payload_at <= bytes.size() && bytes.substr(0, head.payload_at).ends_with(head.manifest));
    const std::string *before = nullptr;
    for (const codesign::Member &member : head.members) {
        check(codesign::path_is_clean(member.path) && member.path.front() != '/');
        check(("/" + member.path + "/").find("/../") == std::string::npos);
        check(before == nullptr || *before < member.path);
        check(codesign::member_find(head.members, member.path) == &member);
        before = &member.path;
    }
    const std::string manifest = codesign::manifest_text(head.payload_digest, head.payload_bytes, head.members);
    const std::string text = codesign::head_text(head.signatures, manifest);
    check(codesign::head_parse(text, &again) && again.manifest == manifest && again.payload_at == text.size());
    check_same(head.signatures, again.signatures);
    check(!codesign::head_parse(std::string_view(text).substr(0, text.size() - 1), &again));
}

void check_tree(std::string_view bytes)
{
    std::vector<codesign::SignatureLine> signatures, again;
    if (!codesign::tree_signature_parse(bytes, &signatures))
        return;
    check(codesign::tree_signature_parse(codesign::tree_signature_text(signatures), &again));
    check_same(signatures, again);
}

} // namespace

void fuzz_one(std::string_view input)
{
    check_head(input);
    check_tree(input);
}
