// Why the partition tool could not do what it was asked for.
#pragma once

#include <cstdint>

enum class Fault : uint8_t {
    kNone,
    kOpen,
    kNotADisk,
    kSectorSize,
    kRead,
    kWrite,
    kNoLabel,
    kDamaged,
    kNoSuchPartition,
    kExists,
    kNumber,
    kType,
    kOverlap,
    kInLabel,
    kBeyondEnd,
    kNoRoomForGpt,
    kLogical,
    kBusy,
    kKernel,
};

struct FaultText {
    const char *text;
    bool has_errno; // errno of the failed call says more
};
[[nodiscard]] const FaultText &fault_text(Fault fault);
