// Forms with files, cut and split in every way: what is stored is what was sent, or nothing.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

#include "install/cgi_param.h"
#include "install/upload.h"
#include "install/upload_buffer.h"
#include "tests/support/alloc_fault.h"
#include "tests/support/containers.h"
#include "tests/support/form_input.h"

namespace
{

const std::string kEnd = "\r\n--B--\r\n";

std::string part(const std::string &disposition, const std::string &content)
{
    return "--B\r\nContent-Disposition: form-data; " + disposition + "\r\nX: y\r\n\r\n" + content;
}

mode_t umask_now()
{
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

class Upload : public testing::Test
{
  protected:
    struct Outcome {
        int status;
        std::map<std::string, std::string> values; // fields; and of "<name>_tmp" what the file holds
    };

    // Parses what stands on standard input.
    Outcome parse(const std::string &length, const char *into = nullptr)
    {
        setenv("CONTENT_LENGTH", length.c_str(), 1);
        UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes)), files(NLIBCSzHashAlloc(kCgiParamBytes));
        const mode_t mask = umask_now();
        const int status = NorvUploadParse(params.address(), files.address(), into != nullptr ? into : folder.c_str());
        EXPECT_EQ(umask_now(), mask);
        Outcome outcome = {status, pairs_of(params.get())};
        for (const auto &[name, path] : pairs_of(files.get())) {
            std::ifstream file(path, std::ios::binary);
            std::ostringstream content;
            content << (file ? "" : "(none)") << file.rdbuf();
            outcome.values[name] = content.str();
            std::filesystem::remove(path);
        }
        EXPECT_TRUE(std::filesystem::is_empty(folder)) << "a file that nobody knows of";
        for (const auto &entry : std::filesystem::directory_iterator(folder))
            std::filesystem::remove(entry);
        return outcome;
    }
    Outcome parse_bytes(const std::string &form)
    {
        FormInput::bytes(form);
        return parse(std::to_string(form.size()));
    }

    Upload()
    {
        setenv("CONTENT_TYPE", "multipart/form-data; boundary=B", 1);
        if (mkdtemp(folder.data()) == nullptr)
            abort();
    }
    ~Upload() override { std::filesystem::remove_all(folder); }
    FormInput input;
    std::string folder = "/dev/shm/norv_upload.XXXXXX"; // where to flush a file is nothing
};

// A part of a form whose file is "a.pat", and a part that is a text.
std::string file_part(const std::string &content, const std::string &filename = "a.pat")
{
    return part("name=\"f\"; filename=\"" + filename + "\"", content);
}
std::string text_part(const std::string &content, const std::string &name = "h")
{
    return part("name=\"" + name + "\"", content);
}

std::string file_form(const std::string &content)
{
    return file_part(content) + kEnd;
}

TEST_F(Upload, Forms)
{
    const std::string nul(1, '\0'), name63(63, 'n'), name4095(4095, 'x');
    const struct {
        std::string form, expected = ""; // the values, each with a blank behind it; empty: refused
        int status = expected.empty() ? kUploadFailed : kUploadGood;
    } kRows[] = {
        // what a browser sends
        {text_part("nas") + "\r\n" + file_part("12") + "\r\n" + part("name=\"g\"; filename=\"\"", "") + kEnd,
         "f=a.pat f_tmp=12 g= h=nas "},
        {file_form(""), "f=a.pat f_tmp= "},
        {"--B\nname=\"h\"\n\na\n--B\nname=\"f\"; filename=\"x\"\n\nb\n--B--\n", "f=x f_tmp=b h=a "},
        // one CR before the delimiter is its own
        {file_form("a\r"), "f=a.pat f_tmp=a\r "},
        {text_part("a\r") + kEnd, "h=a\r "},
        // what only begins like the delimiter is content, what goes on behind it ends the content
        {file_form("a\r\n--\n--A\n\n-"), "f=a.pat f_tmp=a\r\n--\n--A\n\n- "},
        {file_part("1\n--Bx\r\nname=\"h\"\r\n\r\n2", "a") + kEnd, "f=a f_tmp=1 h=2 "},
        // bytes of every value in a file, while a text ends at a NUL, and hides an end that comes with it
        {file_form(nul + "\xff" + nul), "f=a.pat f_tmp=" + nul + "\xff" + nul + " "},
        {text_part("a" + nul + "b") + kEnd},
        {text_part(std::string((16 << 20) + 1, 'x')) + kEnd}, // more than is held in memory
        // names
        {text_part("1", name63) + kEnd, name63 + "=1 "},
        {text_part("1", name63 + "n") + kEnd},
        {part("filename=\"a\"; name=\"f\"", "1") + kEnd, "a=a a_tmp=1 "}, // the first name=" there is
        {file_part("1", name4095) + kEnd, "f=" + name4095 + " f_tmp=1 "},
        {file_part("1", name4095 + "x") + kEnd},
        {part("name=\"h", "1") + kEnd},
        // any line begins a part, also one that fills the buffer
        {"Hello\r\nname=\"h\"\r\n\r\n1\r\n--B--\r\n", "h=1 "},
        {std::string(65536, 'x') + "name=\"h\"\r\n\r\n1\r\n--B--\r\n", "h=1 "},
        {"Hello\r\n" + text_part("1") + kEnd},
        // not a form to its end
        {"--B--"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.form.substr(0, 100));
        const Outcome outcome = parse_bytes(row.form);
        EXPECT_EQ(outcome.status, row.status);
        std::string values;
        for (const auto &[name, value] : outcome.values)
            values += name + "=" + value + " ";
        EXPECT_EQ(outcome.status == kUploadGood ? values : "", row.expected);
    }
}

TEST_F(Upload, Environment)
{
    const std::string form = file_form("12345");
    const auto length = [&](size_t more) { return std::to_string(form.size() + more); };
    const struct {
        std::string length, type;
        int status;
        std::string file; // what is left of it
        const char *folder = nullptr;
    } kRows[] = {
        {length(0), "x; boundary=B", kUploadGood, "12345"},
        {length(0), "multipart/form-data", kUploadFailed, ""},
        {length(0), "boundary=" + std::string(253, 'B'), kUploadFailed, ""},
        {"", "boundary=B", kUploadLength, ""},
        {"-0", "boundary=B", kUploadLength, ""},
        {"-1", "boundary=B", kUploadSize, "12345"},
        {length(1), "boundary=B", kUploadSize, "12345"},
        {length(-1UL), "boundary=B", kUploadFailed, "(none)"},
        {length(0), "boundary=B", kUploadNoDestination, "", "/nowhere"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.length + " " + row.type);
        FormInput::bytes(form);
        setenv("CONTENT_TYPE", row.type.c_str(), 1);
        Outcome outcome = parse(row.length, row.folder);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.values["f_tmp"], row.file);
        char byte;
        EXPECT_EQ(read(STDIN_FILENO, &byte, 1), 0) << "all of it is read, whatever comes of it";
    }
}

// A body that ends anywhere ends the upload, and leaves no part of a file; reads may split it anywhere.
TEST_F(Upload, CutAndSplitAtEveryByte)
{
    const std::string form = text_part("text") + "\r\n" + part("name=\"e\"; filename=\"\"", "") + "\r\n" +
                             file_form("first\nsecond\r\nthird\r");
    const std::map<std::string, std::string> whole = {
        {"h", "text"}, {"e", ""}, {"f", "a.pat"}, {"f_tmp", "first\nsecond\r\nthird\r"}};
    const size_t content_end = form.size() - kEnd.size();
    for (size_t at = 1; at < form.size(); at++) {
        SCOPED_TRACE(at);
        FormInput::bytes(form.substr(0, at));
        Outcome cut = parse(std::to_string(form.size()));
        EXPECT_EQ(cut.status, kUploadFailed);
        EXPECT_TRUE(at >= content_end + strlen("\r\n--B") || cut.values["f_tmp"].empty() ||
                    cut.values["f_tmp"] == "(none)");
        FormInput::pieces({std::string_view(form).substr(0, at), std::string_view(form).substr(at)});
        const Outcome split = parse(std::to_string(form.size()));
        EXPECT_EQ(split.status, kUploadGood);
        EXPECT_EQ(split.values, whole);
    }
}

// The end of the content passes over the edge of the buffer, byte by byte, as reads of every small size bring it.
TEST_F(Upload, EveryLengthAroundTheEdgeOfTheBuffer)
{
    constexpr size_t kAround = 100;
    const std::string filler(65836, 'x');
    std::string lines;
    while (lines.size() < filler.size())
        lines += "\r\n--\n\r--A\n-\r\r\n";
    const struct {
        const std::string &content;
        bool is_file;
    } kForms[] = {{filler, true}, {lines, true}, {lines, false}};
    for (const auto &[content, is_file] : kForms)
        for (size_t length = 65236; length <= 65836; length++) {
            const std::string value = content.substr(0, length);
            const std::string form = is_file ? file_form(value) : text_part(value) + kEnd;
            const size_t step = length % 7 + 1, from = form.size() - kEnd.size() - kAround;
            std::vector<std::string_view> pieces = {std::string_view(form).substr(0, from)};
            for (size_t at = from; at < form.size(); at += step)
                pieces.push_back(std::string_view(form).substr(at, step));
            FormInput::pieces(pieces);
            Outcome outcome = parse(std::to_string(form.size()));
            ASSERT_EQ(outcome.status, kUploadGood) << length;
            ASSERT_TRUE(outcome.values[is_file ? "f_tmp" : "h"] == value) << length;
        }
}

// Why a file is refused is told apart, and nothing of it stays.
TEST_F(Upload, FileFaults)
{
    const rlim_t kNoLimit = RLIM_INFINITY;
    const struct {
        std::string name;
        rlim_t most_bytes;
        int status;
    } kRows[] = {
        {"f", kNoLimit, kUploadGood},
        {"none/f", kNoLimit, kUploadFailed},
        {std::string(300, 'x'), kNoLimit, kUploadNameTooLong},
        {"f", 70000, kUploadFailed}, // a short write
        {"f", 0, kUploadFileTooLarge},
    };
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_IGN);
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.name << " " << row.most_bytes);
        FormInput::bytes(std::string(100000, 'x') + kEnd);
        static UploadBuffer buffer;
        UploadStats stats = {.done = 0, .total = 200000, .status = kUploadGood};
        EXPECT_TRUE(upload_buffer_start(&buffer, "B", &stats));
        const rlimit limit = {.rlim_cur = std::min(row.most_bytes, before.rlim_cur), .rlim_max = before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(upload_file_take(&buffer, (folder + "/" + row.name).c_str()), row.status == kUploadGood);
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ(stats.status, row.status);
        EXPECT_EQ(std::filesystem::remove(folder + "/f"), row.status == kUploadGood);
    }
    signal(SIGXFSZ, SIG_DFL);
}

// Without memory at any place the form is refused, and nothing stays behind.
TEST_F(Upload, NoMemory)
{
    const std::string form = text_part(std::string(3000, 'x')) + "\r\n" + file_form("12");
    setenv("CONTENT_LENGTH", std::to_string(form.size()).c_str(), 1);
    for (int nth = 1, struck = 1; struck; nth++) {
        FormInput::bytes(form);
        UniqueHash params(NLIBCSzHashAlloc(0)), files(NLIBCSzHashAlloc(0));
        AllocFault fault(nth);
        const int status = NorvUploadParse(params.address(), files.address(), folder.c_str());
        struck = fault.struck();
        EXPECT_EQ(status, struck ? kUploadFailed : kUploadGood) << nth;
    }
}

} // namespace
