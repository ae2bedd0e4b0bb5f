#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "autocleanup/unique.h"
#include "install/cgi.h"
#include "lib/file.h"
#include "lib/list.h"
#include "lib/string.h"
#include "lib/text.h"

namespace
{

enum class Match : char {
    kWhole,  // the token is the word
    kBegins, // it begins with the word
    kTag,    // it is the word, or the word with a dash and more
};

struct Language {
    char word[6];
    Match match;
    char offered[4]; // code that must stand in `supplang`
    char code[4];    // answer
};

// The first row that a token matches decides about it.
constexpr Language kLanguages[] = {
    {"zh-tw", Match::kWhole, "cht", "cht"}, {"zh-hk", Match::kWhole, "cht", "cht"},
    {"zh-mo", Match::kWhole, "cht", "cht"}, {"zh", Match::kBegins, "chs", "chs"},
    {"en", Match::kTag, "enu", "enu"},      {"de", Match::kTag, "ger", "ger"},
    {"ja", Match::kTag, "jpn", "jpn"},      {"ko", Match::kTag, "krn", "krn"},
    {"es", Match::kTag, "spn", "spn"},      {"fr", Match::kTag, "fre", "fre"},
    {"it", Match::kTag, "ita", "ita"},      {"pt-br", Match::kBegins, "ptb", "ptb"},
    {"pt", Match::kTag, "ptg", "ptg"},      {"hu", Match::kTag, "hun", "hun"},
    {"tr", Match::kTag, "trk", "trk"},      {"ru", Match::kTag, "rus", "rus"},
    {"da", Match::kTag, "dan", "dan"},      {"sv", Match::kTag, "dan", "sve"}, // Swedish comes with Danish
    {"no", Match::kTag, "nor", "nor"},      {"nb", Match::kTag, "nor", "nor"},
    {"nn", Match::kTag, "nor", "nor"},      {"nl", Match::kTag, "nld", "nld"},
    {"pl", Match::kTag, "plk", "plk"},      {"cs", Match::kTag, "csy", "csy"},
    {"th", Match::kTag, "tha", "tha"},
};

bool is_language(const Language &language, const char *token)
{
    const size_t length = strlen(language.word);
    if (strncasecmp(token, language.word, length) != 0)
        return false;
    const char next = token[length];
    return next == '\0' || language.match == Match::kBegins || (language.match == Match::kTag && next == '-');
}

const Language *language_find(const char *token)
{
    for (const Language &language : kLanguages)
        if (is_language(language, token))
            return &language;
    return nullptr;
}

} // namespace

const char *GetPreferredLang()
{
    char supported[128], header[128];
    const char *accepted = getenv("HTTP_ACCEPT_LANGUAGE");
    if (accepted == nullptr || NLIBCFileGetKeyValue(kDefaultsPath, "supplang", supported, sizeof(supported), 0) <= 0)
        return nullptr;
    text_cut(header, accepted);
    UniqueList tokens(NLIBCSzListAlloc(1024));
    if (!tokens || NLIBCStrTok(header, ",;", tokens.address()) < 0)
        return nullptr;
    for (int i = 0; i < tokens.get()->nItem; i++) {
        const Language *language = language_find(tokens.get()->items[i]);
        if (language != nullptr && strstr(supported, language->offered) != nullptr)
            return language->code;
    }
    return nullptr;
}
