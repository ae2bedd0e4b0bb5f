#include "lib/conf.h"
#include "storage/root_block.h"

bool root_block_is_compatible(const RootBlock *block)
{
    if (block == nullptr || block->capability == nullptr)
        return true;
    const bool is_isolated = NLIBCConfIsYes("root_on_isolated_disk");
    return capability_fits(*block->capability, is_isolated ? kCapabilityIsolated : kCapabilityShared);
}

RootBlockVerdict root_block_is_compatible(const char *disk)
{
    UniqueRootBlock block;
    const int copy = root_block_get(disk, block.address());
    if (copy < 0)
        return kRootBlockError;
    if (copy == 0 || block.get()->capability == nullptr)
        return kRootBlockUnknown;
    return root_block_is_compatible(block.get()) ? kRootBlockCompatible : kRootBlockIncompatible;
}
