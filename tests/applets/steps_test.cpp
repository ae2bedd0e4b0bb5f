// The steps that follow once a board names its model, which none does so far.
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "applets/model_files.h"
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

TEST_F(ModelSteps, WriteSetsSixValuesInOrderOrStops)
{
    write("maxdisks=2\nother=\"kept\"\n");
    expect(model_file_write, kModel, 0, "");
    EXPECT_EQ(content(),
              "maxdisks=\"8\"\nother=\"kept\"\nunique=\"norv_x86_a\"\nhostname=\"NAS\"\nsupportraid=\"yes\"\n"
              "maxlanport=\"4\"\nupnpmodelname=\"A800\"\n");
    const std::string before = content();
    expect(model_file_write, NORVCfgInfo{"", "OTHER", "", "", "", "", ""}, 0, "");
    EXPECT_EQ(content(), before);

    ASSERT_EQ(unlink(path_.c_str()) + mkdir(path_.c_str(), 0700), 0); // a folder cannot be set
    expect(model_file_write, kModel, -1,
           "norvcfgen.cpp:*(NorvConfigGeneratorMain) NLIBCFileSetKeyValue([" + path_ +
               "], [unique], [norv_x86_a]) fail.(900)\n");
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

} // namespace
