#include "disk/disk.h"

#include <cstdlib>

#include "autocleanup/unique.h"
#include "lib/conf.h"
#include "lib/report.h"

namespace
{

struct Candidate {
    const char *name;
    DiskLocation location;
    bool is_parsed;
};

int install_class()
{
    if (conf_support_install_only_dev())
        return kDiskPortSystem;
    return NLIBCConfSupportDualHead() == 1 ? kDiskPortExpansion : kDiskPortInternal;
}

// Whether a disk comes before another in install order. Disks that cannot be told apart stay as they were found.
bool comes_before(const Candidate &left, const Candidate &right)
{
    const auto first_key = conf_supportsas() ? &DiskLocation::reserved : &DiskLocation::unit;
    for (const auto key : {first_key, &DiskLocation::index})
        if (left.is_parsed && right.is_parsed && left.location.*key != right.location.*key)
            return left.location.*key < right.location.*key;
    NORV_LOG(LOG_ERR, "Failed to compare system disks.");
    return false;
}

const Candidate *best_find(const Candidate *candidates, int count, const NLIBSZLIST *out)
{
    const Candidate *best = nullptr;
    for (const Candidate *candidate = candidates; candidate < candidates + count; candidate++)
        if (NLIBCSzListFind(out, candidate->name) < 0 && (best == nullptr || comes_before(*candidate, *best)))
            best = candidate;
    return best;
}

int candidates_sort(const NLIBSZLIST *found, PNLIBSZLIST *list)
{
    const int count = found->nItem;
    UniqueBlock<Candidate> candidates(
        static_cast<Candidate *>(calloc(static_cast<size_t>(count) + 1, sizeof(Candidate))));
    if (!candidates)
        return fail(kErrOutOfMemory);
    for (int i = 0; i < count; i++) {
        Candidate *candidate = candidates.get() + i;
        candidate->name = NLIBCSzListGet(found, i);
        candidate->is_parsed = count > 1 && disk_path_parse(candidate->name, &candidate->location) == 0;
    }
    while (const Candidate *best = best_find(candidates.get(), count, *list))
        if (NLIBCSzListPush(list, best->name) < 0) {
            NORV_LOG(LOG_ERR, "Failed to push system disks.");
            return -1;
        }
    return 0;
}

} // namespace

int NORVDiskSystemInstallationDeviceEnum(PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    UniqueList found(NLIBCSzListAlloc(1024));
    if (!found || external_disk_port_enum(install_class(), found.address()) != 0)
        return -1;
    NLIBCSzListSort(*list, kListUnsorted); // a sorted list would put the names in an order of its own
    if (candidates_sort(found.get(), list) != 0) {
        NORV_LOG(LOG_ERR, "Fail to sort system disks");
        return -1;
    }
    return 0;
}
