#include "platform/sfdisk/fault.h"

#include <cstddef>
#include <iterator>

// In the order of the enumerators.
static constexpr FaultText kTexts[] = {
    {"no fault", false},
    {"cannot be opened", true},
    {"is neither a whole disk nor an image file", false},
    {"has sectors of other than 512 bytes", false},
    {"cannot be read", true},
    {"cannot be written", true},
    {"has no label; -M1 writes one", false},
    {"has a damaged label; nothing was changed", false},
    {"has no such partition", false},
    {"has that partition already", false},
    {"cannot hold a partition of that number", false},
    {"cannot hold a partition of that type", false},
    {"has another partition in that place", false},
    {"keeps its label in that place", false},
    {"ends before such a partition does", false},
    {"has no room for a GPT", false},
    {"keeps an extended partition and its logical ones together", false},
    {"has a partition in use", true},
    {"is seen otherwise by the kernel", true},
};
static_assert(std::size(kTexts) == static_cast<size_t>(Fault::kKernel) + 1);

const FaultText &fault_text(Fault fault)
{
    return kTexts[static_cast<size_t>(fault)];
}
