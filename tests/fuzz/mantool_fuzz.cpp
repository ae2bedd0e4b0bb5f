// The factory tool's command line, on a machine with a board and a record at most. Input: a byte whose bits choose
// whether there is a record (0) and the model (1 and 2), then the arguments, one a line.
// Covers: lib/string_parse_number.cpp applets/mantool_board.cpp(pair_parse uart_byte_parse)
// Covers: applets/mantool_vender.cpp(number_parse mac_parse man_mac_set) applets/mantool_schedule.cpp(entry_parse)
// Covers: applets/set_time_command.cpp(is_match parse month_days is_valid)
// Covers: applets/mantool_test_flags.cpp(man_test_flag_set man_test_flag_get) manutil/test_flags.cpp(test_flag_find
// Covers: func_error_set counter_parse flag_set test_flag_set) manutil/vender_identity.cpp(serial_is_valid)
// Covers: applets/mantool_log.cpp(counter_take session_get model_get record_add message_make)
// Covers: applets/mantool_fan.cpp(man_fan_pwm_set)
#include <cerrno>
#include <cstdarg>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "applets/applets.h"
#include "lib/string.h"
#include "lib/text.h"
#include "manutil/vender_format.h"
#include "platform/board/board.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"

namespace
{

board gblBoard;

int memory_in(void * /*context*/, void *to, uint64_t from, size_t bytes)
{
    memcpy(to, reinterpret_cast<const void *>(from), bytes);
    return 0;
}
int memory_out(void * /*context*/, uint64_t to, const void *from, size_t bytes)
{
    memcpy(reinterpret_cast<void *>(to), from, bytes);
    return 0;
}

} // namespace

// In front of the C library's: the board answers, the boot partition is there, and the clock is not set.
extern "C" int ioctl(int /*fd*/, unsigned long request, ...) noexcept
{
    static constexpr board_memory kMemory = {.in = memory_in, .out = memory_out, .context = nullptr};
    va_list arguments;
    va_start(arguments, request);
    const uint64_t argument = va_arg(arguments, uint64_t);
    va_end(arguments);
    const long result = board_ioctl(&gblBoard, 1, static_cast<uint32_t>(request), argument, &kMemory);
    errno = result < 0 ? static_cast<int>(-result) : errno;
    return result < 0 ? -1 : 0;
}
extern "C" int mount(const char *source, const char *target, const char *type, unsigned long flags,
                     const void *data) noexcept
{
    if (source != nullptr && strcmp(source, "/dev/norvboot2") == 0)
        return 0;
    return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
}
extern "C" int settimeofday(const timeval * /*time*/, const struct timezone * /*zone*/) noexcept
{
    return 0;
}

namespace
{

void record_put(bool is_there)
{
    static constexpr char kPath[] = "/tmp/bootmnt/vender";
    if (!is_there) {
        unlink(kPath);
        return;
    }
    VenderRecord record = {};
    text_cut(record.serial, "A1,CHK=0072");
    VenderBytes bytes;
    vender_encode(record, &bytes);
    file_root_put(kPath, {reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

void model_put(int model)
{
    static constexpr const char *kUniques[] = {"norv_x86_fuzz", "norv", "norv_x86", "norv_x86_nosensor"};
    file_root_put("/etc.defaults/norvinfo.conf", std::string("maxdisks=\"4\"\nunique=\"") + kUniques[model] + "\"\n");
}

} // namespace

void fuzz_begin()
{
    file_root_enter();
    file_root_put("/dev/norvbios", "");
    file_root_put("/proc/sys/kernel/norv_vender_format_version", "0\n");
    file_root_put("/proc/sys/kernel/norv_install_flag", "");
    file_root_put("/proc/sys/kernel/norv_serial", "1234567890ABC\n");
    file_root_put("/proc/sys/kernel/norv_mac_address1", "0200000a0b0c\n");
    file_root_put("/etc/norvmanlog.conf", "label=\"a line of the factory\"\n");
    check(freopen("/dev/null", "w", stdout) != nullptr); // a plain file in this root
}

void fuzz_one(std::string_view input)
{
    const uint8_t machine = byte_take(&input);
    board_init(&gblBoard, 0);
    record_put((machine & 1) != 0);
    model_put(machine >> 1 & 3);
    const std::string name = "mantool";
    std::vector<std::vector<char>> words = {{name.c_str(), name.c_str() + name.size() + 1}, {}};
    for (const char c : input) {
        const bool is_end = c == '\n' || c == '\0';
        words.back().push_back(is_end ? '\0' : c);
        if (is_end)
            words.emplace_back();
    }
    words.back().push_back('\0');
    std::vector<char *> argv;
    for (std::vector<char> &word : words) { // each in a block of just its size
        word.shrink_to_fit();
        uint32_t value = 0;
        static_cast<void>(ParseNumber(word.data(), &value));
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    check(mantool_main(static_cast<int>(words.size()), argv.data()) == 0);
    rewind(stdout);
}
