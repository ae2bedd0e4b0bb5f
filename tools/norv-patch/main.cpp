// Makes, checks and explains firmware patches.
#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/text.h"
#include "platform/codesign/tree_signature.h"
#include "tools/common/text_clean.h"
#include "tools/norv-patch/keys.h"
#include "tools/norv-patch/patch_write.h"

static constexpr char kUsage[] =
    "usage: norv-patch make FOLDER PATCH [--old] [--keys DIR] [--key-type N] [--break WHAT]\n"
    "       norv-patch verify PATCH [--keys DIR] [--key-type N]\n"
    "       norv-patch inspect PATCH\n"
    "       norv-patch keys [--keys DIR] [--key-type N]\n"
    "\n"
    "  make     makes a patch of a folder that holds VERSION, updater, hda1.tgz and so on; writes its checksum.norv\n"
    "  verify   checks signature, wholeness and checksum list, as an appliance with these keys does\n"
    "  inspect  tells what a patch is for and what is in it, whoever made it\n"
    "  keys     makes the keys if need be and tells where the public ones are\n"
    "\n"
    "  --old        the old form: a tar that bears Norvessa.sig\n"
    "  --keys DIR   default $NORV_PATCH_KEYS, or ~/.local/share/norv-patch; private keys never leave it\n"
    "  --key-type N 0 system (default), 1 nano, 2 security, 10 small patch\n"
    "  --break WHAT a patch that must be refused:\n"
    "               unsigned signature stranger truncated payload extra-file escape absolute link device\n"
    "               checksum totals no-totals missing-file\n"
    "  --help       print this text\n"
    "\n"
    "Exit status: 0 done, or the patch is good; 1 the patch is not good; 2 wrong use, or something cannot be read or\n"
    "written.\n";

static constexpr struct {
    const char *word;
    PatchFault patch;
    ListFault list;
} kFaults[] = {
    {"unsigned", PatchFault::kUnsigned, ListFault::kNone},
    {"signature", PatchFault::kSignature, ListFault::kNone},
    {"stranger", PatchFault::kStranger, ListFault::kNone},
    {"truncated", PatchFault::kTruncated, ListFault::kNone},
    {"payload", PatchFault::kPayload, ListFault::kNone},
    {"extra-file", PatchFault::kExtraFile, ListFault::kNone},
    {"escape", PatchFault::kEscape, ListFault::kNone},
    {"absolute", PatchFault::kAbsolute, ListFault::kNone},
    {"link", PatchFault::kLink, ListFault::kNone},
    {"device", PatchFault::kDevice, ListFault::kNone},
    {"checksum", PatchFault::kNone, ListFault::kChecksum},
    {"totals", PatchFault::kNone, ListFault::kTotals},
    {"no-totals", PatchFault::kNone, ListFault::kNoTotals},
    {"missing-file", PatchFault::kNone, ListFault::kMissingFile},
};

static int usage()
{
    fputs(kUsage, stderr);
    return 2;
}

// A folder of its own below /tmp, removed with all that is in it.
class ScratchFolder
{
  public:
    ScratchFolder() : made_(mkdtemp(path_) != nullptr) {}
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;
    ~ScratchFolder()
    {
        if (made_)
            (void)!system(("rm -rf " + std::string(path_)).c_str());
    }
    [[nodiscard]] const char *path() const { return path_; }
    [[nodiscard]] bool is_made() const { return made_; }

  private:
    char path_[32] = "/tmp/norv-patch.XXXXXX";
    bool made_;
};

static int refuse(const char *why)
{
    printf("bad: %s\n", why);
    return 1;
}

static int list_verify(const char *folder)
{
    const char *fault = checksum_list_verify(folder);
    if (fault != nullptr)
        return refuse(fault);
    puts("good");
    return 0;
}

static bool tar_unpack(const char *patch, const char *folder)
{
    const pid_t pid = fork();
    if (pid == 0) {
        execlp("tar", "tar", "xpf", patch, "-C", folder, nullptr);
        _exit(127);
    }
    int status = -1;
    return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

static int archive_verify(const char *patch, const PatchPlan &plan, const char *folder)
{
    codesign::SignedArchive archive;
    archive.dest = folder;
    const int32_t error = codesign::archive_open(&archive, patch, plan.key_folder, plan.key_type);
    if (error == codesign::kArchiveCannotOpen) {
        perror(patch);
        return 2;
    }
    if (error != codesign::kArchiveNoError)
        return refuse("signature");
    if (codesign::archive_extract(&archive, nullptr, codesign::kExtractModes) != codesign::kArchiveNoError)
        return refuse("a member that was not signed");
    return list_verify(folder);
}

static int old_form_verify(const char *patch, const PatchPlan &plan, const char *folder)
{
    std::string text;
    std::vector<codesign::SignatureLine> signatures;
    if (!tar_unpack(patch, folder))
        return refuse("it cannot be unpacked");
    if (!codesign::file_read(std::string(folder) + "/" + codesign::kTreeSignatureName, 65536, &text) ||
        !codesign::tree_signature_parse(text, &signatures) ||
        !codesign::tree_is_signed(folder, signatures, plan.key_folder))
        return refuse("signature");
    return list_verify(folder);
}

static int verify(const PatchPlan &plan)
{
    const ScratchFolder folder;
    if (!folder.is_made()) {
        perror(folder.path());
        return 2;
    }
    const char *patch = plan.path.c_str();
    return codesign::file_is_tar(patch) ? old_form_verify(patch, plan, folder.path())
                                        : archive_verify(patch, plan, folder.path());
}

static void reader_free(archive *reader)
{
    archive_read_free(reader);
}
using UniqueReader = Unique<archive *, nullptr, reader_free>;

// Prints the members, and what VERSION says.
static int content_print(int file)
{
    const UniqueReader reader(archive_read_new());
    if (!codesign::tar_open(reader.get(), file))
        return refuse("neither form of a patch");
    std::string version(65536, '\0');
    size_t version_bytes = 0;
    archive_entry *entry = nullptr;
    int next;
    while ((next = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
        const char *path = archive_entry_pathname(entry);
        const std::string_view name = path != nullptr ? path : ""; // none that can be read
        printf("member: %s, %lld bytes\n", text_clean(name).c_str(), static_cast<long long>(archive_entry_size(entry)));
        if (name == "VERSION" || name == "./VERSION") {
            const la_ssize_t got = archive_read_data(reader.get(), version.data(), version.size());
            version_bytes = got > 0 ? static_cast<size_t>(got) : 0;
        }
    }
    if (next != ARCHIVE_EOF)
        return refuse("it is cut or damaged");
    puts("--- VERSION");
    for (std::string_view rest(version.data(), strnlen(version.data(), version_bytes)), line; !rest.empty();) {
        line = rest.substr(0, rest.find('\n'));
        puts(text_clean(line).c_str());
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return 0;
}

static int inspect(const PatchPlan &plan)
{
    const UniqueFd file(open(plan.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        perror(plan.path.c_str());
        return 2;
    }
    if (codesign::file_is_tar(plan.path.c_str())) {
        puts("form: old (tar)");
        return content_print(file.get());
    }
    std::string beginning(9 << 20, '\0');
    const ssize_t got = read(file.get(), beginning.data(), beginning.size());
    codesign::ArchiveHead head;
    if (got < 0 || !codesign::head_parse({beginning.data(), static_cast<size_t>(got)}, &head))
        return refuse("neither form of a patch");
    puts("form: signed archive");
    for (const codesign::SignatureLine &line : head.signatures)
        printf("signature: key type %d\n", line.key_type);
    if (lseek(file.get(), static_cast<off_t>(head.payload_at), SEEK_SET) < 0)
        return 2;
    return content_print(file.get());
}

static int keys(const PatchPlan &plan)
{
    if (!keys_ensure(plan.key_folder, plan.key_type))
        return 2;
    puts(plan.key_folder.c_str());
    return 0;
}

static bool fault_find(const char *word, PatchPlan *plan)
{
    for (const auto &row : kFaults)
        if (strcmp(row.word, word) == 0) {
            plan->fault = row.patch;
            plan->list_fault = row.list;
            return true;
        }
    return false;
}

static std::string default_key_folder()
{
    const char *folder = getenv("NORV_PATCH_KEYS"), *home = getenv("HOME");
    return folder != nullptr ? folder : std::string(home != nullptr ? home : "/") + "/.local/share/norv-patch";
}

int main(int argc, char *argv[])
{
    static constexpr option kOptions[] = {{"old", no_argument, nullptr, 'o'},
                                          {"keys", required_argument, nullptr, 'k'},
                                          {"key-type", required_argument, nullptr, 't'},
                                          {"break", required_argument, nullptr, 'b'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    PatchPlan plan;
    plan.key_folder = default_key_folder();
    for (int option; (option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (option == 'o')
            plan.is_old_form = true;
        else if (option == 'k')
            plan.key_folder = optarg;
        else if (option == 'h')
            return fputs(kUsage, stdout) < 0 ? 2 : 0;
        else if (option == 't' ? !text_number(optarg, &plan.key_type) : option != 'b' || !fault_find(optarg, &plan))
            return usage();
    }
    const int words = argc - optind;
    const std::string_view command = words > 0 ? argv[optind] : "";
    if (command == "make" && words == 3) {
        plan.folder = argv[optind + 1];
        plan.path = argv[optind + 2];
        return patch_write(plan) ? 0 : 2;
    }
    if (words == 2)
        plan.path = argv[optind + 1];
    if (command == "verify" && words == 2)
        return verify(plan);
    if (command == "inspect" && words == 2)
        return inspect(plan);
    return command == "keys" && words == 1 ? keys(plan) : usage();
}
