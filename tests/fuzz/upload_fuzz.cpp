// Forms with files. The first two bytes are added to the length that is promised, the first line behind them is the
// boundary, and the rest is the body. The second byte may be one of the Lack.
// Covers: install/upload_parse.cpp(header_value_take header_read text_append text_gather text_part_take file_part_take
// Covers: part_take parts_take total_read boundary_find form_take) install/upload_buffer.cpp
// Covers: install/upload_file_take.cpp(bytes_copy file_take upload_file_take)
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "install/upload.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/form_input.h"

namespace
{

enum Lack : uint8_t { kNoLength = 0xff, kNoBoundary = 0xfe, kNoFolder = 0xfd, kTooShort = 0xfc };

std::string folder_make()
{
    std::string path = access("/dev/shm", W_OK) == 0 ? "/dev/shm/upload_fuzz.XXXXXX" : "/tmp/upload_fuzz.XXXXXX";
    check(mkdtemp(path.data()) != nullptr, "no folder");
    atexit([] { std::filesystem::remove_all(getenv("UPLOAD_FUZZ_FOLDER")); });
    setenv("UPLOAD_FUZZ_FOLDER", path.c_str(), 1);
    return path;
}

// A file is a stretch of the body, from behind a line to the first delimiter.
void file_check(const std::filesystem::path &path, const std::string &body, const std::string &delimiter)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream stream;
    stream << file.rdbuf();
    const std::string content = stream.str();
    check(content.find(delimiter) == content.npos, "a file goes on behind its end");
    for (const char *end : {"", "\r"})
        if (body.find("\n" + content + end + delimiter) != body.npos)
            return;
    check(false, "a file is no stretch of the body");
}

} // namespace

void fuzz_one(std::string_view input)
{
    static const FormInput form;
    static const std::string folder = folder_make();
    const size_t more = byte_take(&input), lack = byte_take(&input);
    const std::string boundary = text_take(&input, '\n'), body(input);
    const size_t promised = lack == kTooShort ? 1 : body.size() + more + lack * 256;
    setenv("CONTENT_LENGTH", lack == kNoLength ? "" : std::to_string(promised).c_str(), 1);
    setenv("CONTENT_TYPE", ("multipart/form-data; " + (lack == kNoBoundary ? "" : "boundary=" + boundary)).c_str(), 1);
    FormInput::bytes(body);
    UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes)), files(NLIBCSzHashAlloc(kCgiParamBytes));
    const int status = NorvUploadParse(params.address(), files.address(), lack == kNoFolder ? "/none" : folder.c_str());
    check(status == kUploadGood || status < 0, "no status");
    check(status != kUploadGood || promised == body.size(), "good in spite of its length");
    char byte;
    check(read(STDIN_FILENO, &byte, 1) == 0, "the body was not read to its end");
    const std::string delimiter = "\n--" + std::string(boundary.c_str());
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        file_check(entry.path(), body, delimiter);
        std::filesystem::remove(entry.path());
    }
}
