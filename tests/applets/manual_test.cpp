// The manual pages against the programs that they tell of.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/sandbox.h"

namespace
{

using Words = std::set<std::string>;
const std::string kPages = NORV_BINARY_DIR "/docs/man/";

std::string file_read(const std::filesystem::path &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// What each page names of the words that the program's own help should offer, by "raidtool(8)".
std::map<std::string, Words> pages_read()
{
    std::map<std::string, Words> pages;
    std::ifstream file(kPages + "words.txt");
    for (std::string line; std::getline(file, line);) {
        std::istringstream rest(line);
        std::string page;
        rest >> page;
        for (std::string word; rest >> word;)
            pages[page].insert(word);
        pages.try_emplace(page);
    }
    return pages;
}

Words words_find(const std::string &text, const char *pattern)
{
    Words found;
    const std::regex word(pattern, std::regex::multiline);
    for (std::sregex_iterator at(text.begin(), text.end(), word), end; at != end; ++at)
        found.insert((*at)[1]);
    return found;
}

TEST(Manual, EveryNameAndToolHasAPage)
{
    Words names = words_find(file_read(NORV_SOURCE_DIR "/applets/main.cpp"), R"r(^    \{"([a-z0-9_.]+)", )r"), roles;
    names.insert("ncemd");
    ASSERT_GT(names.size(), 30U);
    const auto pages = pages_read();
    for (const auto &[page, words] : pages)
        if (page.ends_with("(8)"))
            roles.insert(page.substr(0, page.size() - 3));
    EXPECT_EQ(roles, names);
    for (const auto &entry : std::filesystem::directory_iterator(NORV_SOURCE_DIR "/tools"))
        for (const std::string &tool :
             words_find(file_read(entry.path() / "CMakeLists.txt"), R"(^add_executable\((\S+))"))
            EXPECT_TRUE(pages.contains(tool + "(1)")) << tool;
}

TEST(Manual, PagesAreClean)
{
    int pages = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(kPages)) {
        const std::string path = entry.path();
        if (!path.ends_with(".1") && !path.ends_with(".8"))
            continue;
        pages++;
        const Finished mandoc = run_program({"/usr/bin/mandoc", "-T", "lint", "-W", "warning", path});
        const Finished groff = run_program({"/usr/bin/groff", "-ww", "-man", "-Tutf8", "-z", path});
        EXPECT_EQ(mandoc.out + groff.out, "") << path;
        EXPECT_TRUE(mandoc.status == 0 && groff.status == 0) << path;
    }
    EXPECT_EQ(pages, static_cast<int>(pages_read().size()));
}

// How a program is made to print its help, and how the words stand in it that the page must have: these and no other.
const struct {
    const char *page;
    std::vector<std::string> args;
    const char *pattern;
} kHelps[] = {
    {"findhostd(8)", {"-x"}, "(-[a-zA-Z]) "},
    {"raidtool(8)", {}, R"(^\traidtool (\S+))"},
    {"norvhwctrl(8)", {"-h"}, R"(^norvhwctrl (\S+))"},
    {"mantool(8)", {"-h"}, R"(^mantool (\S+))"},
    {"norvdiskport(8)", {}, R"(^    norvdiskport (\S+))"},
    {"norvupgrade(8)", {}, R"(^\t(--[a-z-]+))"},
    {"norv_swap_ctl(8)", {}, R"(^(--[a-z]+))"},
    {"norvstgcore(8)", {"--help"}, "(--[a-z-]+)"},
};

TEST(Manual, RolesOfferWhatTheirPagesTell)
{
    auto pages = pages_read();
    Sandbox box;
    for (const auto &[page, args, pattern] : kHelps) {
        const std::string name(page, std::string_view(page).find('('));
        std::vector<std::string> command = {name};
        command.insert(command.end(), args.begin(), args.end());
        const Result result = box.run(command);
        EXPECT_EQ(words_find(result.out + result.err, pattern), pages[page]) << page;
        pages.erase(page);
    }
    // Its help is a list of what it sends; the page tells of the few that need a word.
    const std::string help = box.run({"norv_microp_control"}).out;
    for (const std::string &word : pages["norv_microp_control(8)"])
        EXPECT_TRUE(holds(help, word)) << word;
    pages.erase("norv_microp_control(8)");
    for (const auto &[page, words] : pages)
        EXPECT_TRUE(words.empty() || page.ends_with("(1)")) << page << " tells of words that no help is held against";
}

// Commands and options as a tool's usage shows them, and the words of its values.
TEST(Manual, ToolsOfferWhatTheirPagesTell)
{
    for (const auto &[page, words] : pages_read()) {
        if (!page.ends_with("(1)"))
            continue;
        const std::string name = page.substr(0, page.size() - 3);
        std::string folder = name;
        if (!std::filesystem::exists(NORV_BINARY_DIR "/tools/" + name))
            std::replace(folder.begin(), folder.end(), '-', '_');
        const Finished help = run_program({NORV_BINARY_DIR "/tools/" + folder + "/" + name, "--help"});
        const std::string &text = help.out;
        Words offered = words_find(text, R"((--[a-z][a-z-]*))");
        offered.merge(words_find(text, ("^(?:usage:|      ) " + name + " ([a-z]+)").c_str()));
        for (const std::string &word : offered)
            EXPECT_TRUE(words.contains(word)) << page << " does not tell of " << word;
        for (const std::string &word : words)
            EXPECT_TRUE(std::regex_search(text, std::regex("(^|[^a-z-])" + word + "([^a-z-]|$)")))
                << name << " does not offer " << word;
    }
}

TEST(Manual, ShellCompletes)
{
    static constexpr struct {
        const char *file, *words, *completed;
    } kCases[] = {
        {"norv-patch", "norv-patch --break un", "unsigned"},
        {"norvfind", "norvfind scan --js", "--json"},
        {"norvfind", "norvfind --interface l", "lo"},
        {"disk-explain", "disk-explain /etc/hostn", "/etc/hostname"},
        {"lab-vm", "lab/vm start --disk-im", "--disk-image"},
    };
    for (const auto &[file, words, completed] : kCases) {
        const std::string line = ". " + kPages + "completions/" + file + "; COMP_WORDS=(" + words +
                                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); set -- $(complete -p ${COMP_WORDS[0]}); "
                                 "while [ $1 != -F ]; do shift; done; $2; echo \"${COMPREPLY[*]}\"";
        const Finished shell = run_program({"/bin/bash", "-c", line});
        EXPECT_EQ(shell.out, std::string(completed) + "\n") << words;
    }
}

// The anchors of a document's headings, as a forge makes them.
Words anchors_of(const std::string &text)
{
    Words anchors;
    for (std::string heading : words_find(text, "^#+ (.*)$")) {
        std::erase_if(heading, [](unsigned char c) { return c != ' ' && c != '-' && c != '_' && !isalnum(c); });
        for (char &c : heading)
            c = c == ' ' ? '-' : static_cast<char>(tolower(c));
        anchors.insert(heading);
    }
    return anchors;
}

TEST(Manual, DocumentsPointAtWhatIsThere)
{
    const std::filesystem::path root(NORV_SOURCE_DIR);
    std::vector<std::filesystem::path> documents = {root / "README.md", root / "CONTRIBUTING.md"};
    for (const auto &entry : std::filesystem::directory_iterator(root / "docs"))
        if (entry.path().extension() == ".md")
            documents.push_back(entry.path());
    std::string scripts; // what they write may not be there yet
    for (const auto &entry : std::filesystem::directory_iterator(root / "scripts"))
        scripts += file_read(entry.path());
    for (const auto &document : documents) {
        const std::string text = file_read(document);
        for (const std::string &link : words_find(text, R"r((?:\]\(|src=")([^)" ]+)[)"])r")) {
            const size_t hash = std::min(link.find('#'), link.size());
            const auto target = hash == 0 ? document : document.parent_path() / link.substr(0, hash);
            if (link.starts_with("http"))
                continue;
            const bool is_written = holds(scripts, target.lexically_proximate(root).lexically_normal());
            EXPECT_TRUE(is_written || std::filesystem::exists(target)) << document << ": " << link;
            const bool has_anchor =
                hash == link.size() || anchors_of(file_read(target)).contains(link.substr(hash + 1));
            EXPECT_TRUE(has_anchor) << document << ": " << link;
        }
        for (const std::string &path :
             words_find(text, R"(`((?:[a-z_-]+/)+[a-z_.-]+\.(?:h|cpp|c|py|sh|toml|def|conf))`)"))
            EXPECT_TRUE(std::filesystem::exists(root / path)) << document << ": " << path;
    }
}

// A message that people search for must be one that a program prints: each piece between dots of "..." is looked for.
TEST(Manual, TroubleshootingQuotesThePrograms)
{
    std::string sources;
    for (const char *folder :
         {"applets", "boot",  "disk",    "external", "fan",  "findhost", "install", "lab",       "lib",   "manutil",
          "net",     "panel", "scripts", "storage",  "swap", "tools",    "zram",    "tests/lab", "cmake", "platform"})
        for (const auto &entry :
             std::filesystem::recursive_directory_iterator(std::filesystem::path(NORV_SOURCE_DIR) / folder))
            if (entry.is_regular_file())
                sources += file_read(entry.path());
    int messages = 0;
    const std::string text = file_read(NORV_SOURCE_DIR "/docs/troubleshooting.md");
    for (const std::string &first_cell : words_find(text, R"r(^\| ([^|]*`[^|]*) \|)r"))
        for (const std::string &message : words_find(first_cell, "`([^`]+)`")) {
            messages++;
            for (size_t at = 0, end; at <= message.size(); at = end + 3) {
                end = std::min(message.find("...", at), message.size());
                EXPECT_TRUE(holds(sources, message.substr(at, end - at))) << message;
            }
        }
    EXPECT_GT(messages, 80);
    for (const std::string &word : words_find(file_read(NORV_SOURCE_DIR "/install/web_progress.cpp"),
                                              R"r("(?:error|wizard|status)", "([a-z_]+)"\})r"))
        EXPECT_TRUE(holds(text, "| `" + word + "` |")) << word;
}

} // namespace
