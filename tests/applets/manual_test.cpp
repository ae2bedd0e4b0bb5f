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

TEST(Manual, EveryNameHasAPageAndEveryPageAName)
{
    std::ifstream file(NORV_SOURCE_DIR "/applets/main.cpp");
    std::ostringstream table;
    table << file.rdbuf();
    Words names = words_find(table.str(), R"r(^    \{"([a-z0-9_.]+)", )r");
    names.insert("ncemd");
    ASSERT_GT(names.size(), 30U);
    Words roles;
    for (const auto &[page, words] : pages_read())
        if (page.ends_with("(8)"))
            roles.insert(page.substr(0, page.size() - 3));
    EXPECT_EQ(roles, names);
}

TEST(Manual, PagesAreClean)
{
    int pages = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(kPages)) {
        const std::string path = entry.path();
        if (!path.ends_with(".1") && !path.ends_with(".8"))
            continue;
        pages++;
        EXPECT_EQ(run_program({"/usr/bin/mandoc", "-T", "lint", "-W", "warning", path}).out, "") << path;
        EXPECT_EQ(run_program({"/usr/bin/groff", "-ww", "-man", "-Tutf8", "-z", path}).out, "") << path;
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
        EXPECT_NE(help.find(word), std::string::npos) << word;
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
        {"norv-patch", "norv-patch ver", "verify"},
        {"norvfind", "norvfind scan --js", "--json"},
        {"norvfind", "norvfind --interface l", "lo"},
        {"disk-explain", "disk-explain /etc/hostn", "/etc/hostname"},
        {"lab-vm", "lab/vm transc", "transcript"},
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

} // namespace
