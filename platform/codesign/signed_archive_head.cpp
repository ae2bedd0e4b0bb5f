#include "lib/text.h"
#include "platform/codesign/signed_archive.h"

namespace codesign
{

static constexpr uint64_t kManifestLimit = 8 << 20;
static constexpr size_t kSignaturesLimit = 16;

// Cuts the first line off the text. False when there is no line feed.
static bool line_cut(std::string_view *text, std::string_view *line)
{
    const size_t end = text->find('\n');
    if (end == text->npos)
        return false;
    *line = text->substr(0, end);
    text->remove_prefix(end + 1);
    return true;
}

static bool manifest_parse(std::string_view text, ArchiveHead *out)
{
    std::string_view line;
    if (!line_cut(&text, &line) || word_cut(&line) != "payload")
        return false;
    std::string digest;
    if (!hex_decode(word_cut(&line), &digest) || digest.size() != out->payload_digest.size() ||
        !text_number(word_cut(&line), &out->payload_bytes) || !line.empty())
        return false;
    digest.copy(reinterpret_cast<char *>(out->payload_digest.data()), digest.size());
    while (line_cut(&text, &line)) {
        Member member;
        if (!member_parse(line, &member) || (!out->members.empty() && out->members.back().path >= member.path))
            return false;
        out->members.push_back(member);
    }
    return text.empty();
}

bool signatures_parse(std::string_view *text, std::vector<SignatureLine> *out)
{
    std::string_view line, rest = *text;
    while (line_cut(&rest, &line) && word_cut(&line) == "signature") {
        SignatureLine signature;
        if (out->size() == kSignaturesLimit || !text_number(word_cut(&line), &signature.key_type) ||
            !hex_decode(line, &signature.signature))
            return false;
        out->push_back(signature);
        *text = rest;
    }
    return true;
}

bool head_parse(std::string_view bytes, ArchiveHead *out)
{
    *out = {};
    std::string_view rest = bytes, line;
    if (!rest.starts_with(kArchiveMagic))
        return false;
    rest.remove_prefix(sizeof(kArchiveMagic) - 1);
    uint64_t manifest_bytes = 0;
    if (!signatures_parse(&rest, &out->signatures) || !line_cut(&rest, &line) || word_cut(&line) != "manifest")
        return false;
    if (!text_number(word_cut(&line), &manifest_bytes) || !line.empty() || manifest_bytes > kManifestLimit ||
        manifest_bytes > rest.size())
        return false;
    out->manifest = rest.substr(0, manifest_bytes);
    out->payload_at = bytes.size() - rest.size() + manifest_bytes;
    return manifest_parse(out->manifest, out);
}

std::string manifest_text(const Digest &payload_digest, uint64_t payload_bytes, const std::vector<Member> &members)
{
    return "payload " + hex_of(payload_digest) + " " + std::to_string(payload_bytes) + "\n" + members_text(members);
}

std::string signatures_text(const std::vector<SignatureLine> &signatures)
{
    std::string text;
    for (const SignatureLine &line : signatures)
        text += "signature " + std::to_string(line.key_type) + " " +
                hex_of(line.signature.data(), line.signature.size()) + "\n";
    return text;
}

std::string head_text(const std::vector<SignatureLine> &signatures, std::string_view manifest)
{
    return kArchiveMagic + signatures_text(signatures) + "manifest " + std::to_string(manifest.size()) + "\n" +
           std::string(manifest);
}

} // namespace codesign
