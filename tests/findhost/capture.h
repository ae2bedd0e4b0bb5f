// Captures of frames, and what tshark shows of them through the dissector.
#pragma once

#include <algorithm>
#include <string>
#include <unistd.h>
#include <vector>

#include "build_paths.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/platform/run_program.h"
#include "tests/support/scratch_dir.h"

inline constexpr char kDissector[] = NORV_SOURCE_DIR "/tools/wireshark/norvfind.lua";

// A file of Ethernet frames (pcap 2.4).
class Capture
{
  public:
    static bool can_be_shown() { return access("/usr/bin/tshark", X_OK) == 0; }

    void add_frame(const std::string &frame)
    {
        const std::string size = number(0, frame.size()).substr(2);
        bytes_ += std::string(8, '\0') + size + size + frame;
    }
    // Adds a frame to all with one datagram, from port 1234.
    void add_datagram(const std::string &payload, int port)
    {
        using namespace std::string_literals;
        const std::string udp =
            "\x04\xd2" + big_endian(static_cast<size_t>(port)) + big_endian(payload.size() + 8) + "\0\0"s + payload;
        add_frame("\xff\xff\xff\xff\xff\xff\x02\0\0\0\0\0\x08\0\x45\0"s + big_endian(udp.size() + 20) +
                  "\0\xf2\0\0\x40\x11\0\0\x01\x01\x01\x01\xff\xff\xff\xff"s + udp);
    }

    // One line for each frame, the values of the fields in it with bars between them.
    std::string shown(const std::string &secret_keys, const std::vector<std::string> &fields) const
    {
        const ScratchDir folder;
        const std::string path = folder.write("capture.pcap", bytes_), home = "HOME=" + folder.path(),
                          script = std::string("lua_script:") + kDissector, keys = "norvfind.keys:" + secret_keys;
        std::vector<std::string> words = {
            "/usr/bin/env", "LC_ALL=C.UTF-8", home, "/usr/bin/tshark", "-X", script, "-o", keys, "-r", path,
            "-T",           "fields",         "-E", "separator=|"};
        for (const std::string &field : fields)
            words.insert(words.end(), {"-e", field});
        std::string out = run_program(words).out;
        for (size_t at; (at = out.find("Running as user")) != std::string::npos;) // a word to root
            out.erase(at, std::min(out.find('\n', at), out.size() - 1) + 1 - at);
        return out;
    }

  private:
    static std::string big_endian(size_t value) { return {static_cast<char>(value >> 8), static_cast<char>(value)}; }

    std::string bytes_ = std::string("\xd4\xc3\xb2\xa1\x02\0\x04\0\0\0\0\0\0\0\0\0\xff\xff\0\0\x01\0\0\0", 24);
};
