// The programs around the appliance, as processes. What could do harm runs in namespaces of its own.
#include <filesystem>
#include <gtest/gtest.h>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/in_child.h"
#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;

namespace
{

std::string program(const char *name)
{
    return std::string(NORV_BINARY_DIR "/platform/programs/") + name;
}

std::string script(const char *name)
{
    return std::string(NORV_SOURCE_DIR "/platform/programs/") + name;
}

TEST(Cksum, SumsBytesByEitherRule)
{
    const ScratchDir folder;
    const std::string path = folder.write("large", std::string(300'001, '\xa5')), empty = folder.write("empty", "");
    EXPECT_EQ(run_program({program("cksum"), empty}).out, "4294967295 0 " + empty + "\n");
    EXPECT_EQ(run_program({program("cksum"), path}).out, run_program({"/usr/bin/cksum", path}).out);
    EXPECT_EQ(run_program({"/bin/sh", "-c", program("cksum") + " -o 3 <" + path}).out, "950207936 300001\n");

    const Finished finished = run_program({program("cksum"), "-o3", folder.path("none"), "/", path});
    EXPECT_EQ(finished.status, 1);
    EXPECT_NE(finished.out.find("950207936 300001 " + path + "\n"), std::string::npos) << finished.out;
    EXPECT_EQ(run_program({program("cksum"), "-o", "2", path}).status, 1);
    EXPECT_EQ(run_program({program("pg_controldata"), "--dump-alignment"}).out, "8\n");
}

TEST(Norvdd, ZeroesAllButWhatItCannot)
{
    const ScratchDir folder;
    const std::string name = fs::path(folder.path()).filename();
    const std::string large = folder.write(name + "1", std::string((3 << 20) + 5, '\xff'));
    const std::string small = folder.write(name + "2", "x");
    EXPECT_EQ(run_program({program("norvdd"), large, small}).status, 0);
    EXPECT_EQ(folder.read(name + "1"), std::string((3 << 20) + 5, '\0'));
    EXPECT_EQ(folder.read(name + "2"), std::string(1, '\0'));
    EXPECT_TRUE(run_program({"/bin/cat", "/tmp/norvdd." + name + "1"}).out.starts_with("100"));
    folder.write(name + "2", "x");
    EXPECT_EQ(run_program({program("norvdd"), folder.path("none"), folder.path() + "/", small}).status, 1);
    EXPECT_EQ(folder.read(name + "2"), std::string(1, '\0'));
    EXPECT_EQ(run_program({program("norvdd")}).status, 2);
    for (const std::string end : {"", "1", "2"})
        fs::remove("/tmp/norvdd." + (end.empty() ? "none" : name + end));
    fs::remove("/tmp/norvdd.");
}

// A script as root of user, mount, network and process namespaces; nothing of it outlives the script.
Finished run_apart(const std::string &script)
{
    Finished finished = run_program(
        {"/usr/bin/unshare", "-r", "-m", "-n", "-p", "-f", "--kill-child", "--mount-proc", "/bin/sh", "-ec", script});
    if (finished.out.starts_with("unshare: "))
        not_run(finished.out);
    return finished;
}

TEST(Ps, ListsEveryProcessWithItsWholeCommandLine)
{
    const std::string words(3000, 'w');
    const std::string script = "sh -c '\"$0\" -Iwww \"$@\"; :' " + program("ps") + " \"$(printf 'a\\nb')\" " + words;
    const Finished finished = run_apart(script);
    EXPECT_EQ(finished.out.substr(0, finished.out.find('\n')), "  PID S COMMAND");
    EXPECT_NE(finished.out.find("R " + program("ps") + " -Iwww a?b " + words + "\n"), std::string::npos);
    EXPECT_NE(finished.out.find(" sh -c \"$0\" -Iwww \"$@\"; : " + program("ps") + " a?b www"), std::string::npos);
}

// The tree in which mounts are made: a, b in it, and b once more at c.
std::string mounts_script(const ScratchDir &folder, const std::string &then)
{
    return "t='" + folder.path("m t") + "'; umount='" + program("umount") + "'\n" +
           R"sh(mkdir -p "$t" "$t.c"
              mount -t tmpfs one "$t"; mkdir "$t/b" "$t/d"
              mount -t tmpfs two "$t/b"; mount --bind "$t/b" "$t.c"
              (cd "$t/b"; exec sleep 1000) & in_b=$!
              sleep 1000 >"$t/file" & has_file=$!
              sleep 1000 & other=$!
              mounts() { grep -c 'm.040t' /proc/self/mountinfo || :; }
              lives() { for pid; do kill -0 $pid && echo lives; done; }
              dies() { for pid; do while kill -0 $pid; do sleep 0.1; done; echo dead; done; }
              shut() { rc=0; "$umount" "$@" || rc=$?; echo "$rc"; }
              until [ "$(readlink /proc/$in_b/cwd)" = "$t/b" ] && [ -e "$t/file" ]; do sleep 0.05; done
           )sh" +
           then;
}

TEST(Umount, UnmountsWhatItIsAskedFor)
{
    const struct {
        const char *script, *out;
    } kCases[] = {
        // Busy stays, and nobody is killed.
        {R"(shut "$t"; lives $in_b $has_file; mounts)", "32\nlives\nlives\n3\n"},
        // All below, and their users; what is also mounted elsewhere stays there.
        {R"(shut -R -A -k "$t"; dies $in_b $has_file; lives $other; mounts)", "0\ndead\ndead\nlives\n1\n"},
        {R"(shut -k "$t/b"; dies $in_b; lives $has_file; mounts; shut "$t.c"; mounts)", "0\ndead\nlives\n2\n0\n1\n"},
        {R"(shut -l "$t/b"; lives $in_b; mounts; shut two; mounts)", "0\nlives\n2\n0\n1\n"},
        {R"(shut -A two; shut -r "$t/b"; touch "$t/b/x" || echo read-only)", "32\n0\nread-only\n"},
        {R"(shut "$t/d"; shut "$t.none"; shut -x; shut; shut -a x)", "32\n32\n1\n1\n1\n"},
    };
    for (const auto &row : kCases) {
        const ScratchDir folder;
        const Finished finished = run_apart(mounts_script(folder, "(" + std::string(row.script) + ") 2>/dev/null"));
        EXPECT_EQ(finished.status, 0) << row.script << finished.out;
        EXPECT_EQ(finished.out, row.out) << row.script;
    }
}

TEST(Umount, KillsNobodyForTheRootFileSystem)
{
    const ScratchDir folder;
    folder.write("from/x", "");
    folder.write("to/x", "");
    const Finished finished =
        run_apart("cd '" + folder.path() + "'; mount --bind from to; (cd to; exec sleep 1000) & sleep 0.1\n" +
                  program("umount") + " -k to || echo $?; kill -0 $! && echo lives");
    EXPECT_NE(finished.out.find("32\nlives\n"), std::string::npos) << finished.out;
}

// /etc and /run of its own, a service on port 2323, and lo up.
std::string inetd_script(const std::string &then)
{
    return "inetd='" + program("inetd") + "'\n" +
           R"(busybox=/bin/busybox
              mount -t tmpfs etc /etc; mount -t tmpfs run /run; $busybox ifconfig lo 127.0.0.1
              echo 'root:x:0:0::/:/bin/sh' >/etc/passwd
              echo 'read -r line; echo "got $line from $0 $1"' >/etc/answer
              echo '2323 stream tcp nowait root /bin/sh sh /etc/answer one # comment' >/etc/inetd.conf
              start() { rc=0; "$inetd" "$@" 2>/dev/null || rc=$?; echo "$rc"; }
              # One that nobody has waited for has given all back as well; one that only lost its memory has not.
              ended() { until ! grep -qs '^State:[^ZX]*$' /proc/$1/status; do sleep 0.1; done; }
              ask() { echo "$1" | $busybox timeout 10 $busybox nc 127.0.0.1 2323 2>/dev/null; }
           )" +
           then;
}

TEST(Inetd, StartsAProgramForEachConnection)
{
    const Finished finished = run_apart(inetd_script(R"(
        start; ask x; ask y
        pid=$(cat /run/inetd.pid); kill -0 $pid && echo lives
        start                                  # the port is taken
        [ $pid = $(cat /run/inetd.pid) ] && ask z
        kill $pid; ended $pid; start; ask again)"));
    EXPECT_EQ(finished.out, "0\ngot x from /etc/answer one\ngot y from /etc/answer one\nlives\n1\n"
                            "got z from /etc/answer one\n0\ngot again from /etc/answer one\n");
}

TEST(Inetd, RefusesATableThatIsWrong)
{
    const Finished finished = run_apart(inetd_script(R"(
        wrong() { echo "$1" >>/etc/inetd.conf; start; cp /etc/good /etc/inetd.conf; }
        cp /etc/inetd.conf /etc/good
        wrong 'nosuch stream tcp nowait root /bin/sh sh'
        wrong '2324 dgram udp wait root /bin/sh sh'
        wrong '2324 stream tcp nowait nosuch /bin/sh sh'
        wrong '2324 stream tcp nowait root /bin/sh'
        wrong '70000 stream tcp nowait root /bin/sh sh'
        start /etc/none; : >/etc/empty; start /etc/empty
        ask x || echo silent; [ ! -e /run/inetd.pid ] && echo none)"));
    EXPECT_EQ(finished.out, "1\n1\n1\n1\n1\n1\n1\nsilent\nnone\n");
}

constexpr char kModelPath[] = "/etc.defaults/norvinfo.conf";

struct Installer : testing::Test {
    Installer()
    {
        for (const char *path : {"/bin/sed", "/bin/head"})
            box.host_file(path, path);
        for (const char *path : {"/sbin/mdadm", "/sbin/mke2fs", "/sbin/sfdisk", "/usr/sbin/raidtool",
                                 "/usr/sbin/norv_swap_ctl", "/usr/sbin/norvgetmaxpartition"})
            box.program(path);
        box.host_file("/installer.sh", script("installer.sh"));
        box.file("/dev/md0", "");
        box.file("/dev/md1", "");
        box.leaves({"/tmp/mkfs.progress.*"});
    }
    // Returns the exit status; the programs that ran are in `calls`, by their names.
    int run(const std::string &model, std::vector<std::string> words)
    {
        box.file(kModelPath, model + "\n");
        words.insert(words.begin(), {"/bin/sh", "/installer.sh"});
        const Result result = box.run(words);
        calls = "";
        for (const std::string &line : result.record.lines)
            if (line.starts_with("run ") && !line.starts_with("run /bin/sh "))
                calls += line.substr(line.rfind('/', line.find(' ', 4)) + 1) + "\n";
        return result.exit_status;
    }
    Sandbox box;
    std::string calls;
};

TEST_F(Installer, DoesTheStepsOfItsModelInOrder)
{
    const std::string stop = "norv_swap_ctl --stop\nmdadm -S /dev/md0\nmdadm -S /dev/md1\n";
    const std::string system = "mke2fs -F -t ext4 /dev/md0\n", swap = "norv_swap_ctl --start\n";
    const std::string sda = "sfdisk -M1 /dev/sda\nsfdisk -N1 -uS -q -f -j2048 -z4980480 -t83 -F /dev/sda\n"
                            "sfdisk -N2 -uS -q -f -j0 -z4194304 -t82 -F /dev/sda\n";
    const struct {
        const char *model;
        std::vector<std::string> words;
        std::string calls;
    } kCases[] = {
        {"supportraid=\"yes\"", {"-r", "", ""}, stop + "norvgetmaxpartition\nraidtool initsys\n" + system + swap},
        {"supportraid=\"yes\"", {"-r", "", "-m"}, system + swap},
        {"supportraid=\"yes\"",
         {"", "-d", ""},
         "raidtool destroy 2\nraidtool newvol\n" + system + "mke2fs -F -t ext4 /dev/md2\n" + swap},
        {"supportraid=\"no\"",
         {"-r"},
         stop + "sfdisk --fast-delete 1:2 /dev/sda\n" + sda + "mke2fs -F -t ext4 /dev/sda1\n" + swap},
        {"partition_curr_version=\"8\"",
         {"-r", "-d"},
         stop + "sfdisk --fast-delete -1 /dev/sda\n" + sda +
             "sfdisk --fast-delete 3:128 /dev/sda\nsfdisk -N3 -uS -q -f -j260352 -z-1 -t83 -F /dev/sda\n"
             "mke2fs -F -t ext4 /dev/sda1\nmke2fs -F -t ext4 /dev/sda3\n" +
             swap},
        {"ali_nos=\"yes\"", {"-r"}, "mke2fs -F -t ext4 /dev/sda5\n" + swap},
    };
    for (const auto &row : kCases) {
        EXPECT_EQ(run(row.model, row.words), 0);
        EXPECT_EQ(calls, row.calls) << row.model << testing::PrintToString(row.words);
    }
    box.program("/usr/sbin/norvgetmaxpartition", {{.exit_status = 1}}); // the platform with system disks of its own
    EXPECT_EQ(run("supportraid=\"yes\"", {"-r"}), 0);
    EXPECT_NE(calls.find("raidtool initsys-hdseries\n"), std::string::npos) << calls;
}

TEST_F(Installer, EndsAtTheFirstStepThatFails)
{
    const struct {
        const char *model, *failing;
        int status;
        const char *never; // called
    } kCases[] = {
        {"supportraid=\"yes\"", "/usr/sbin/norv_swap_ctl", 10, "raidtool"},
        {"supportraid=\"yes\"", "/sbin/mdadm", 11, "raidtool"},
        {"supportraid=\"yes\"", "/usr/sbin/raidtool", 13, "mke2fs"},
        {"supportraid=\"yes\"", "/sbin/mke2fs", 14, "norv_swap_ctl --start"},
        {"", "/sbin/sfdisk", 12, "mke2fs"},
        {"partition_curr_version=\"4\"", "/none", 16, "sfdisk"},
    };
    for (const auto &row : kCases) {
        box.program(row.failing, {{.exit_status = 1, .times = 1}});
        EXPECT_EQ(run(row.model, {"-r"}), row.status) << row.failing;
        EXPECT_EQ(calls.find(row.never), std::string::npos) << calls;
    }
    box.remove("/dev/md0"); // raidtool ends well without an array
    EXPECT_EQ(run("supportraid=\"yes\"", {"-r"}), 13);
    EXPECT_EQ(run("supportraid=\"yes\"", {"-x"}), 2);
    EXPECT_EQ(calls, "");
}

TEST(BackupJuniorLog, TakesTheLogsToTheSystemVolume)
{
    Sandbox box;
    std::string saved;
    for (const char *name : {"sed", "head", "mktemp", "mkdir", "cp", "rmdir"})
        box.host_file(std::string("/bin/") + name, std::string("/bin/") + name);
    box.host_file("/backup.sh", script("backup_junior_log.sh"));
    box.file(kModelPath, "supportraid=\"yes\"\n");
    box.file("/var/log/messages", "line\n");
    box.file("/tmp/installer_sh.log", "made\n");
    box.program("/bin/mount",
                {{.times = 1, .effect = [&](const ProgramCall &call) { box.directory(call.args[1] + "/var"); }},
                 {.exit_status = 1}});
    box.program("/bin/umount", {{.effect = [&](const ProgramCall &call) {
                    for (const char *name : {"messages", "installer_sh.log"})
                        saved += box.read_file(call.args[0] + "/var/log/junior/" + name);
                    box.remove(call.args[0] + "/var");
                }}});
    const auto status = [&box] { return box.run({"/bin/sh", "/backup.sh"}).exit_status; };
    EXPECT_EQ(status(), 0); // no system volume
    EXPECT_EQ(box.programs_called(), "/bin/sh /backup.sh\n");
    box.file("/dev/md0", "");
    EXPECT_EQ(status(), 0);
    EXPECT_EQ(saved, "line\nmade\n");
    EXPECT_TRUE(box.record().in_order({"run /bin/mount /dev/md0 /tmp/backup_log.*", "run /bin/umount *"}));
    EXPECT_EQ(status(), 1); // the mount fails, and nothing is left
    EXPECT_EQ(box.record().count("run /bin/umount *"), 1);
}

} // namespace
