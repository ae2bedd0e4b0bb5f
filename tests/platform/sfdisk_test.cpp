// The partition tool, as a process on image files and, where the kernel's answers matter, in process.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/mman.h>
#include <zlib.h>

#include "build_paths.h"
#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/label.h"
#include "tests/platform/bytes.h"
#include "tests/platform/run_program.h"

namespace
{

constexpr char kSfdisk[] = NORV_BINARY_DIR "/platform/sfdisk/sfdisk";
constexpr uint64_t kGiB = 1ULL << 30;
constexpr uint64_t kTiB = 1ULL << 40;

Bytes little_endian(uint64_t value, size_t count)
{
    Bytes bytes;
    for (; bytes.size() < count; value >>= 8)
        bytes.push_back(static_cast<uint8_t>(value));
    return bytes;
}

Bytes operator+(Bytes left, const Bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The check sum of a GPT.
uint32_t crc(const Bytes &bytes)
{
    return static_cast<uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

// A sparse file in memory, known by a path as long as it lives.
class Image
{
  public:
    explicit Image(uint64_t bytes) : fd_(memfd_create("disk", MFD_CLOEXEC)), sectors_(bytes / kSectorBytes)
    {
        EXPECT_EQ(ftruncate(fd_.get(), static_cast<off_t>(bytes)), 0);
        path_ = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_.get());
    }
    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] uint64_t sectors() const { return sectors_; }
    [[nodiscard]] Bytes read(uint64_t sector, size_t at = 0, size_t count = kSectorBytes) const
    {
        Bytes bytes(count);
        EXPECT_EQ(pread(fd_.get(), bytes.data(), count, static_cast<off_t>(sector * kSectorBytes + at)),
                  static_cast<ssize_t>(count));
        return bytes;
    }
    void write(uint64_t sector, size_t at, const Bytes &bytes) const
    {
        EXPECT_EQ(pwrite(fd_.get(), bytes.data(), bytes.size(), static_cast<off_t>(sector * kSectorBytes + at)),
                  static_cast<ssize_t>(bytes.size()));
    }
    // Everything a label can stand in: both ends of the disk.
    [[nodiscard]] Bytes ends() const
    {
        return read(0, 0, 40 * kSectorBytes) + read(sectors() - 40, 0, 40 * kSectorBytes);
    }
    // "1 63 273042 83\n" a partition.
    [[nodiscard]] std::string list() const;

  private:
    UniqueFd fd_;
    uint64_t sectors_;
    std::string path_;
};

// Words have one blank between them, so that two blanks make an empty word.
Finished sfdisk(const Image &image, const std::string &line)
{
    std::vector<std::string> words = {kSfdisk};
    std::istringstream stream(line);
    for (std::string word; std::getline(stream, word, ' ');)
        words.push_back(word);
    words.push_back(image.path());
    return run_program(words);
}
void sfdisk_well(const Image &image, const std::string &line)
{
    const Finished finished = sfdisk(image, line);
    EXPECT_EQ(finished.status, 0) << line << ": " << finished.out;
}

std::string text(uint64_t number)
{
    return std::to_string(number);
}

std::string Image::list() const
{
    const Finished finished = sfdisk(*this, "-l -uS");
    EXPECT_EQ(finished.status, 0) << finished.out;
    std::string text = finished.out;
    for (size_t at; (at = text.find(path_ + "p")) != std::string::npos;) // the path ends in a digit
        text.erase(at, path_.size() + 1);
    return text;
}

// The label and partitions, with the very lines of the installer. All layouts that a firmware ever wrote, and what
// other tools say of them, are seen in the virtual machine.
void system_partitions_create(const Image &image, uint64_t start, uint64_t system, uint64_t swap,
                              const std::string &type1, const std::string &type2)
{
    sfdisk_well(image, "-M1");
    sfdisk_well(image, "-N1 -uS -q -f -j" + text(start) + " -z" + text(system) + " -t" + type1 + " -F");
    sfdisk_well(image, "-N2 -uS -q -f -j0 -z" + text(swap) + " -t" + type2 + " -F");
}
void data_partition_create(const Image &image)
{
    sfdisk_well(image, "-N3  -uS -q -f -j260352 -z-1 -tfd -F");
}

// A disk of layout 8 for arrays.
void layout8_create(const Image &image)
{
    system_partitions_create(image, 2048, 4980480, 4194304, "fd", "fd");
    data_partition_create(image);
}

TEST(Sfdisk, MsDosLabelByteByByte)
{
    const Image image(kGiB);
    system_partitions_create(image, 63, 273042, 787185, "83", "82");
    EXPECT_EQ(image.read(0, 446, 66), hex("00 010100 83 fe3f10 3f000000 922a0400"
                                          "00 000111 82 fe3f41 d12a0400 f1020c00") +
                                          Bytes(32) + hex("55aa"));
    EXPECT_NE(image.read(0, 440, 4), Bytes(4)); // the disk's id
}

TEST(Sfdisk, GptByteByByte)
{
    const Image image(3 * kTiB);
    const uint64_t last = image.sectors() - 1;
    system_partitions_create(image, 8192, 16777216, 4194304, "fd", "82");
    EXPECT_EQ(image.read(0, 446, 66), hex("00 000200 ee ffffff 01000000 ffffffff") + Bytes(48) + hex("55aa"));

    const Bytes id = image.read(1, 56, 16);
    EXPECT_EQ(id[7] >> 4, 4); // of random bytes
    const uint64_t kCopies[][3] = {{1, last, 2}, {last, 1, last - 32}};
    for (const auto &[here, other, entries_at] : kCopies) {
        SCOPED_TRACE(here);
        const Bytes entries = image.read(entries_at, 0, 16384);
        const Bytes id1 = image.read(entries_at, 16, 16);
        const Bytes id2 = image.read(entries_at, 144, 16);
        EXPECT_EQ(entries, hex("0f889da1 fc05 3b4d a006 743f0f84911e") + id1 + little_endian(8192, 8) +
                               little_endian(16785407, 8) + Bytes(80) + hex("6dfd5706 aba4 c443 84e5 0933c84b4f4f") +
                               id2 + little_endian(16785408, 8) + little_endian(20979711, 8) + Bytes(80) +
                               Bytes(16384 - 256));
        EXPECT_NE(id1, id2);
        const auto header = [&, here = here, other = other, entries_at = entries_at](uint32_t sum) {
            return hex("45464920 50415254 00000100 5c000000") + little_endian(sum, 4) + Bytes(4) +
                   little_endian(here, 8) + little_endian(other, 8) + little_endian(34, 8) +
                   little_endian(last - 33, 8) + id + little_endian(entries_at, 8) + hex("80000000 80000000") +
                   little_endian(crc(entries), 4);
        };
        EXPECT_EQ(image.read(here), header(crc(header(0))) + Bytes(kSectorBytes - 92));
    }
}

TEST(Sfdisk, TheDataPartitionOutlivesNewSystemPartitions)
{
    for (const uint64_t bytes : {8 * kGiB, 3 * kTiB}) {
        const Image image(bytes);
        layout8_create(image);
        const auto entry3 = [&] { // with a random id, or the active flag
            return bytes == 3 * kTiB ? image.read(2, 256, 128) : image.read(0, 446 + 32, 16);
        };
        if (bytes != 3 * kTiB)
            image.write(0, 446 + 32, {0x80});
        const Bytes entry = entry3();
        const std::string line2 = "2 4982528 4194304 fd\n";
        const std::string before =
            "1 2048 4980480 fd\n" + line2 + "3 9437184 " + std::to_string(image.sectors() - 1001 - 9437184) + " fd\n";
        EXPECT_EQ(image.list(), before);
        EXPECT_EQ(sfdisk(image, "-l -uS -N2").out, image.path() + "p" + line2);
        EXPECT_EQ(sfdisk(image, "-l -uS -N4").status, 1);
        const Bytes ends = image.ends();
        sfdisk_well(image, "-M1"); // there is one
        EXPECT_EQ(image.ends(), ends);
        sfdisk_well(image, "--fast-delete 1:2");
        EXPECT_EQ(image.list(), before.substr(before.find("3 9437184")));
        sfdisk_well(image, "--fast-delete 1:2"); // nothing left is no fault
        system_partitions_create(image, 2048, 4980480, 4194304, "fd", "fd");
        EXPECT_EQ(image.list(), before);
        EXPECT_EQ(entry3(), entry);

        sfdisk_well(image, "--fast-delete 3:128");
        EXPECT_EQ(image.list(), before.substr(0, before.find("3 9437184")));
        sfdisk_well(image, "--fast-delete -1");
        for (const uint64_t sector : {uint64_t{0}, uint64_t{1}, image.sectors() - 1})
            EXPECT_EQ(image.read(sector), Bytes(kSectorBytes)) << sector;
        sfdisk_well(image, "-M1");
        EXPECT_EQ(image.list(), "");
    }
}

TEST(Sfdisk, WritesALabelOnlyWhereThereIsNone)
{
    const Image fat(kGiB), stale(3 * kTiB), small(kGiB);
    fat.write(0, 446, Bytes(64, 0x41)); // a file system without a label has the same signature
    fat.write(0, 510, {0x55, 0xaa});
    layout8_create(stale); // headers that nothing announces
    stale.write(0, 0, Bytes(kSectorBytes));
    small.write(1, 0, {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'});
    for (const Image *image : {&fat, &stale, &small}) {
        sfdisk_well(*image, "-M1");
        EXPECT_EQ(image->list(), "");
    }
    EXPECT_EQ(small.read(1), Bytes(kSectorBytes));
}

TEST(Sfdisk, AGptNeedsOneWholeCopy)
{
    const Image image(3 * kTiB);
    const uint64_t last = image.sectors() - 1;
    layout8_create(image);
    const std::string lines = image.list();
    // Bytes of the primary copy and of the backup: header, its sum, where the entries are, an entry.
    for (const auto &[sector, at] :
         {std::pair<uint64_t, size_t>{1, 0}, {1, 17}, {1, 72}, {2, 40}, {last, 24}, {last - 32, 8}}) {
        SCOPED_TRACE(text(sector) + "+" + text(at));
        const auto hurt = [&image](uint64_t where, size_t byte) {
            image.write(where, byte, {static_cast<uint8_t>(image.read(where)[byte] ^ 1U)});
        };
        hurt(sector, at);
        EXPECT_EQ(image.list(), lines);
        sfdisk_well(image, "--fast-delete 3:3"); // writes both copies anew
        data_partition_create(image);
        hurt(sector, at);
        hurt(sector > 2 ? 1 : last, 0);
        const Bytes before = image.ends();
        for (const char *words : {"-l", "-M1", "--fast-delete=1:2"}) {
            const Finished finished = sfdisk(image, words);
            EXPECT_EQ(finished.status, 1);
            EXPECT_NE(finished.out.find("damaged label"), std::string::npos) << finished.out;
        }
        EXPECT_EQ(image.ends(), before);
        sfdisk_well(image, "--fast-delete=-1"); // says that all may go
        layout8_create(image);
    }
}

TEST(Sfdisk, AFifthPartitionMakesAGpt)
{
    const Image image(8 * kGiB);
    system_partitions_create(image, 2048, 4980480, 4194304, "fd", "fd");
    image.write(0, 100, {0xeb}); // boot code stays
    sfdisk_well(image, "-N128 -j8 -z4096 -t83");
    EXPECT_EQ(image.list(), "1 2048 4980480 fd\n2 4982528 4194304 fd\n128 9176840 4096 83\n");
    EXPECT_EQ(image.read(0)[100], 0xeb);
}

// Entries of an MS-DOS label in a row.
struct Entry {
    uint8_t type;
    uint32_t start, sectors;
};
void entries_write(const Image &image, uint64_t sector, const std::vector<Entry> &entries)
{
    Bytes bytes;
    for (const Entry &entry : entries)
        bytes = bytes + Bytes{0, 0, 0, 0, entry.type, 0, 0, 0} + little_endian(entry.start, 4) +
                little_endian(entry.sectors, 4);
    image.write(sector, 446, bytes);
    image.write(sector, 510, {0x55, 0xaa});
}

// Two logical partitions in partition 2, and a third primary one behind.
void logicals_create(const Image &image)
{
    entries_write(image, 0, {{0x83, 2048, 2048}, {0x05, 8192, 8192}, {0x83, 20480, 4096}});
    entries_write(image, 8192, {{0x83, 64, 1000}, {0x05, 4096, 4096}});
    entries_write(image, 12288, {{0x82, 64, 2000}});
}

TEST(Sfdisk, LogicalPartitionsAreListedAndStayWithTheirExtendedOne)
{
    const Image image(64 << 20);
    logicals_create(image);
    EXPECT_EQ(image.list(), "1 2048 2048 83\n2 8192 8192 5\n3 20480 4096 83\n5 8256 1000 83\n6 12352 2000 82\n");
    const Bytes before = image.read(0, 0, 40 * kSectorBytes);
    for (const char *range : {"1:2", "3:128", "5:5"}) {
        const Finished finished = sfdisk(image, std::string("--fast-delete ") + range);
        EXPECT_EQ(finished.status, 1) << range;
        EXPECT_NE(finished.out.find("logical ones together"), std::string::npos) << finished.out;
    }
    EXPECT_EQ(sfdisk(image, "-N7 -j0 -z8 -t83").status, 1); // a GPT could not hold them
    EXPECT_EQ(image.read(0, 0, 40 * kSectorBytes), before);
    sfdisk_well(image, "--fast-delete 1:1");
    EXPECT_EQ(image.list(), "2 8192 8192 5\n3 20480 4096 83\n5 8256 1000 83\n6 12352 2000 82\n");
    sfdisk_well(image, "--fast-delete 2:128");
    EXPECT_EQ(image.list(), "");

    logicals_create(image);
    entries_write(image, 12288, {{0x82, 64, 2000}, {0x05, 4096, 4096}}); // leads back to itself
    const std::string lines = image.list();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3 + 1 + 99);
}

TEST(Sfdisk, RefusesWhatWouldDoHarmAndChangesNothing)
{
    const Image blank(kGiB), dos(8 * kGiB), gpt(3 * kTiB), tiny(600 * kSectorBytes);
    layout8_create(dos);
    layout8_create(gpt);
    sfdisk_well(tiny, "-M1");
    const struct {
        const Image &image;
        const char *line, *text;
    } kCases[] = {
        {blank, "-N1 -j2048 -z100 -t83", "has no label"},
        {dos, "-N3 -j0 -z-1 -t83", "has that partition already"},
        {dos, "-N4 -j0 -z1 -t5", "of that type"},
        {dos, "-N4 -j0 -z1002 -t83", "ends before"},
        {dos, "-N4 -j18446744073709551615 -z1 -t83", "ends before"},
        {dos, "-N4 -j1 -z18446744073709551614 -t83", "ends before"},
        {gpt, "-N129 -j0 -z1 -t83", "of that number"},
        {gpt, "-N4 -j0 -z1 -t41", "of that type"},
        {gpt, "-N4 -j0 -z969 -t83", "ends before"}, // 968 reach up to the backup label
        {tiny, "-N1 -j0 -z8 -t83", "keeps its label"},
    };
    for (const auto &row : kCases) {
        const Bytes was = row.image.ends();
        const Finished finished = sfdisk(row.image, row.line);
        EXPECT_EQ(finished.status, 1) << row.line;
        EXPECT_NE(finished.out.find(row.text), std::string::npos) << finished.out << row.line;
        EXPECT_EQ(row.image.ends(), was) << row.line;
    }
    for (const char *line :
         {"-N1 -j2048 -z8", "-z8 -t83", "-N4 -z0 -t83", "-N4 -z8x -t83", "-N4 -z8 -t100", "-N4 -uM -z8 -t83", "-M2",
          "-M1 -l", "-l /dev/null", "--fast-delete 2:1", "--fast-delete 0:3", "--fast-delete 1:256", ""})
        EXPECT_EQ(sfdisk(blank, line).status, 2) << line;
    EXPECT_EQ(blank.ends(), Bytes(80 * kSectorBytes));
    sfdisk_well(gpt, "-N4 -j0 -z968 -t83");
    EXPECT_EQ(run_program({kSfdisk, "-M1", "/dev/null"}).status, 1);

    // Partitions 1 and 2 in the place of others.
    sfdisk_well(dos, "--fast-delete 1:2");
    EXPECT_NE(sfdisk(dos, "-N1 -j9437184 -z8 -t83").out.find("another partition"), std::string::npos);
    EXPECT_NE(sfdisk(dos, "-N1 -j9437000 -z185 -t83").out.find("another partition"), std::string::npos);
    sfdisk_well(dos, "-N1 -j9437000 -z-1 -t83"); // to the end: up to the next one
    EXPECT_EQ(dos.list().substr(0, 17), "1 9437000 184 83\n");
}

// What the kernel would be asked, and how it answers.
struct Kernel {
    std::vector<std::string> requests;
    std::map<std::string, int> errors; // errno of a request
    int busy_answers = 0;              // so many of the next removals are refused
};
Kernel *gblKernel;

int kernel_answer(int fd, int operation, blkpg_partition *partition)
{
    static_cast<void>(fd);
    std::string request = (operation == BLKPG_ADD_PARTITION ? "add " : "del ") + std::to_string(partition->pno);
    if (operation == BLKPG_ADD_PARTITION)
        request += " " + std::to_string(partition->start / 512) + " " + std::to_string(partition->length / 512);
    if (gblKernel->requests.empty() || gblKernel->requests.back() != request)
        gblKernel->requests.push_back(request);
    errno = gblKernel->errors[request];
    if (operation == BLKPG_DEL_PARTITION && gblKernel->busy_answers > 0) {
        gblKernel->busy_answers--;
        errno = EBUSY;
    }
    return errno == 0 ? 0 : -1;
}

struct KernelTest : testing::Test {
    KernelTest() : image(8 * kGiB)
    {
        layout8_create(image);
        gblKernel = &kernel;
        EXPECT_EQ(disk_open(image.path().c_str(), DiskAccess::kWrite, &disk), Fault::kNone);
        disk.request = kernel_answer;
        before = image.ends();
    }
    using Requests = std::vector<std::string>;
    const std::string add1 = "add 1 2048 4980480", add2 = "add 2 4982528 4194304";

    Image image;
    Disk disk;
    Kernel kernel;
    Bytes before;
};

TEST_F(KernelTest, IsToldOfEachPartition)
{
    kernel.errors["del 4"] = ENXIO; // the usual answer
    EXPECT_EQ(partitions_remove(disk, 1, 2), Fault::kNone);
    EXPECT_EQ(partition_add(disk, {1, 2048, 4980480, 0xfd}), Fault::kNone);
    EXPECT_EQ(partition_add(disk, {4, 1, 1000, 0x83}), Fault::kNone);
    EXPECT_EQ(kernel.requests, (Requests{"del 1", "del 2", "del 1", add1, "del 4", "add 4 16776216 1000"}));
}

TEST_F(KernelTest, WaitsForAPartitionInUseAndThenRefuses)
{
    kernel.busy_answers = 2;
    EXPECT_EQ(partitions_remove(disk, 2, 2), Fault::kNone);
    EXPECT_EQ(partition_add(disk, {2, 0, 4194304, 0xfd}), Fault::kNone);
    before = image.ends();
    kernel.requests.clear();
    kernel.errors = {{"del 2", EBUSY}, {"add 4 16776216 1000", EBUSY}, {"del 3", EINVAL}};
    EXPECT_EQ(partitions_remove(disk, 1, 2), Fault::kBusy);
    EXPECT_EQ(kernel.requests, (Requests{"del 1", "del 2", add1}));
    EXPECT_EQ(partitions_remove_all(disk), Fault::kBusy);
    EXPECT_EQ(partition_add(disk, {4, 1, 1000, 0x83}), Fault::kBusy);
    EXPECT_EQ(partitions_remove(disk, 3, 128), Fault::kKernel);
    EXPECT_EQ(image.ends(), before);
}

TEST_F(KernelTest, IsToldAgainWhenTheDiskCannotBeWritten)
{
    disk.fd.reset(open(image.path().c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(partitions_remove(disk, 1, 2), Fault::kWrite);
    EXPECT_EQ(kernel.requests, (Requests{"del 1", "del 2", add1, add2}));
    EXPECT_EQ(partitions_remove_all(disk), Fault::kWrite);
    EXPECT_EQ(kernel.requests[kernel.requests.size() - 2], add2);
    kernel.requests.clear();
    EXPECT_EQ(partition_add(disk, {4, 1, 1000, 0x83}), Fault::kWrite);
    EXPECT_EQ(kernel.requests, (Requests{"del 4", "add 4 16776216 1000", "del 4"}));
    EXPECT_EQ(image.ends(), before);
}

TEST_F(KernelTest, IsToldTwoSectorsOfAnExtendedPartition)
{
    const Image extended(64 << 20);
    logicals_create(extended);
    ASSERT_EQ(disk_open(extended.path().c_str(), DiskAccess::kWrite, &disk), Fault::kNone);
    kernel.errors["del 6"] = EBUSY;
    EXPECT_EQ(partitions_remove(disk, 2, 128), Fault::kBusy);
    EXPECT_EQ(kernel.requests, (Requests{"del 2", "del 3", "del 4", "del 5", "del 6", "add 2 8192 2",
                                         "add 3 20480 4096", "add 5 8256 1000"}));
}

// Kills the tool at each of its writes in turn: the disk has the old label or the new one.
TEST(Sfdisk, AKillAtAnyWriteLeavesTheOldLabelOrTheNewOne)
{
    constexpr char kStrace[] = "/usr/bin/strace";
    if (access(kStrace, X_OK) != 0)
        GTEST_SKIP() << "no " << kStrace;
    const struct {
        uint64_t bytes;
        const char *number, *line; // of the partition, on a disk with 1 and 2; what the new label has more
    } kCases[] = {
        {8 * kGiB, "-N3", "3 9176832 8 fd\n"},
        {3 * kTiB, "-N3", "3 9176832 8 fd\n"},
        {8 * kGiB, "-N5", "5 9176832 8 fd\n"}, // MS-DOS becomes GPT
    };
    for (const auto &row : kCases) {
        int status = -1;
        for (int write = 1; status != 0; write++) {
            ASSERT_LT(write, 20);
            const Image image(row.bytes);
            system_partitions_create(image, 2048, 4980480, 4194304, "fd", "fd");
            const std::string before = image.list();
            const std::string kill = "inject=pwrite64:signal=KILL:when=" + std::to_string(write);
            status =
                run_program({kStrace, "-qq", "-e", "trace=pwrite64", "-e", "signal=none", "-e", kill, "-E",
                             "ASAN_OPTIONS=detect_leaks=0", kSfdisk, row.number, "-j0", "-z8", "-tfd", image.path()})
                    .status;
            EXPECT_TRUE(status == 0 || status == -SIGKILL) << status;
            const std::string after = image.list();
            EXPECT_TRUE((status != 0 && after == before) || after == before + row.line) << after;
        }
    }
}

} // namespace
