// Pieces of the roles in process: the steps that follow once a board names its model, the banner, command tables.
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "applets/banner.h"
#include "applets/command.h"
#include "applets/model_files.h"
#include "lib/report.h"
#include "tests/support/scratch_dir.h"

namespace
{

class ModelSteps : public testing::Test
{
  protected:
    void write(const std::string &text) const { scratch_.write("norvinfo.conf", text); }
    [[nodiscard]] std::string content() const { return scratch_.read("norvinfo.conf"); }
    // Runs a step and expects its result and its output, where * stands for a line number.
    void expect(int (*step)(const NORVCfgInfo &, const char *), const NORVCfgInfo &model, int result,
                const std::string &output) const
    {
        testing::internal::CaptureStdout();
        EXPECT_EQ(step(model, path_.c_str()), result);
        std::string out = testing::internal::GetCapturedStdout();
        const size_t line = out.find(".cpp:");
        if (line != std::string::npos)
            out.replace(line + 5, out.find('(') - line - 5, "*");
        EXPECT_EQ(out, output);
    }

    ScratchDir scratch_;
    std::string path_ = scratch_.path("norvinfo.conf");
};

constexpr NORVCfgInfo kModel = {"norv_x86_a", "NAS", "yes", "4", "8", "A800", "group_a"};

TEST_F(ModelSteps, WriteSetsSixValuesInOrder)
{
    write("maxdisks=2\nother=\"kept\"\n");
    expect(model_file_write, kModel, 0, "");
    EXPECT_EQ(content(),
              "maxdisks=\"8\"\nother=\"kept\"\nunique=\"norv_x86_a\"\nhostname=\"NAS\"\nsupportraid=\"yes\"\n"
              "maxlanport=\"4\"\nupnpmodelname=\"A800\"\n");
    const std::string before = content();
    expect(model_file_write, NORVCfgInfo{"", "OTHER", "", "", "", "", ""}, 0, "");
    EXPECT_EQ(content(), before);
}

TEST_F(ModelSteps, WriteStopsAtTheFirstFailure)
{
    ASSERT_EQ(mkdir(path_.c_str(), 0700), 0); // a folder cannot be set
    expect(model_file_write, kModel, -1,
           "norvcfgen.cpp:*(NorvConfigGeneratorMain) NLIBCFileSetKeyValue([" + path_ +
               "], [unique], [norv_x86_a]) fail.(900)\n");
    rmdir(path_.c_str());
}

TEST_F(ModelSteps, AdoptGoesByTheGroup)
{
    const std::string word = "NorvHDConfigGeneratorMain: ";
    const std::string skipped = word + "Fail to get value of [unique] in [" + path_ + "], skip share hardware fixing\n";
    expect(model_file_adopt, kModel, 0, word + "fail to get file " + path_ + "\n");
    const struct {
        std::string before, after, output;
    } kCases[] = {
        {"a=b\n", "a=b\n", skipped},
        {"unique=\"\"\n", "unique=\"\"\n", skipped},
        {"unique=" + std::string(64, 'u') + "\n", "unique=" + std::string(64, 'u') + "\n", skipped},
        {"unique=norv_x86_a\n", "unique=norv_x86_a\n", ""},
        {"unique=group_b\n", "unique=group_b\n",
         word + "[group_b] and [norv_x86_a] are not in one mass production group\n"},
        {"unique=group_a\nupnpmodelname=G\n", "unique=\"norv_x86_a\"\nupnpmodelname=\"A800\"\n", ""},
    };
    for (const auto &[before, after, output] : kCases) {
        SCOPED_TRACE(before);
        write(before);
        expect(model_file_adopt, kModel, 0, output);
        EXPECT_EQ(content(), after);
    }
    write("unique=group_a\n");
    expect(model_file_adopt, NORVCfgInfo{"norv_x86_a", "", "", "", "", "A800", ""}, 0, "");
    EXPECT_EQ(content(), "unique=group_a\n");
}

// A file-size limit lets the file grow by so many bytes: none of the two values, or only the first, can be set.
TEST_F(ModelSteps, AdoptStopsAtTheFirstFailure)
{
    const std::string filler = "#" + std::string(5000, 'x') + "\n"; // longer than the output, which the limit binds too
    const std::string head = "norvhdcfgen.cpp:*(NorvHDConfigGeneratorMain) set ",
                      tail = " in [" + path_ + "] fail.(B00)\n";
    const struct {
        size_t growth;
        std::string unique, output;
    } kCases[] = {
        {0, "unique=group_a\n", head + "[unique] = [norv_x86_a]" + tail},
        {5, "unique=\"norv_x86_a\"\n", head + "[upnpmodelname] = A800" + tail},
    };
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    for (const auto &[growth, unique, output] : kCases) {
        SCOPED_TRACE(growth);
        write(filler + "unique=group_a\n");
        const rlimit limit = {content().size() + growth, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        expect(model_file_adopt, kModel, -1, output);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        EXPECT_EQ(content(), filler + unique);
    }
    signal(SIGXFSZ, handler);
}

TEST(CpldInfo, NeedsARecord)
{
    EXPECT_EQ(get_cpld_info(nullptr), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
}

// The year is what follows the last space within 15 characters.
TEST(Banner, Year)
{
    static constexpr const char *kCases[][2] = {
        {"Aug  4 2021", "2021"},
        {"2021", nullptr},
        {"0123456789 2021x", "2021"},
        {"012345678901234 2021", nullptr},
    };
    for (const auto &[date, year] : kCases) {
        testing::internal::CaptureStdout();
        banner_print(date);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  year == nullptr
                      ? ""
                      : "Copyright (c) 2003-" + std::string(year) + " Norvessa, Inc. All rights reserved.\n");
    }
}

// Of two rows with one name the last one runs; a failure is told; the closing row is no command.
TEST(Command, LastRowOfANameRuns)
{
    static constexpr Command kCommands[] = {
        {"-twice", [](int, char *[]) { return 1; }, "one\n"},
        {"-fails", [](int argc, char *[]) { return argc; }, "two\n"},
        {"-twice", [](int, char *[]) { return 0; }, "three\n"},
        {"", [](int, char *[]) { return 0; }, ""},
    };
    const struct {
        char word[8];
        CommandEnd end;
        const char *out;
    } kCases[] = {
        {"-twice", CommandEnd::kDone, ""},     {"-fails", CommandEnd::kFailed, "Excution Error\n"},
        {"", CommandEnd::kUnknown, ""},        {"-fail", CommandEnd::kUnknown, ""},
        {"-failsx", CommandEnd::kUnknown, ""},
    };
    for (auto [word, end, out] : kCases) {
        SCOPED_TRACE(word);
        char program[] = "tool";
        char *argv[] = {program, word, nullptr};
        testing::internal::CaptureStdout();
        EXPECT_EQ(command_run(kCommands, 2, argv), end);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
    }
}

} // namespace
