// Devices made up in process: the code under test's ioctl comes here first, since the linker wraps it in
// norv_unit_tests. While an instance lives, SCSI commands and NVMe admin commands on any descriptor are answered from
// its rows; other requests fail with ENOTTY, BLKGETSIZE64 apart. Without an instance every call is the true one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct DeviceAnswer {
    std::string command{}; // first bytes of the CDB, or opcode and log page or CNS; "." in a place matches any byte
    std::string bytes{};   // what comes back
    std::string sense{};   // when not empty the command ends with it
    int error = 0;         // errno; the request then fails
};

class DeviceAnswers
{
  public:
    explicit DeviceAnswers(std::vector<DeviceAnswer> rows, std::uint64_t size_bytes = 0);
    DeviceAnswers(const DeviceAnswers &) = delete;
    DeviceAnswers &operator=(const DeviceAnswers &) = delete;
    ~DeviceAnswers();

    // For the wrapper: what the request returns.
    int request(unsigned long request, void *argument);

  private:
    [[nodiscard]] const DeviceAnswer *find(const std::string &command) const;

    std::vector<DeviceAnswer> rows_;
    std::uint64_t size_bytes_;
};
