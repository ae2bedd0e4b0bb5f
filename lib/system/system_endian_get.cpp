#include <string_view>

#include "lib/report.h"
#include "lib/system/system.h"
#include "lib/system/system_info.h"

static constexpr std::string_view kBigModels[] = {"ppc", "powerpc"};

static int endian_read(const char *root)
{
    SystemInfo info;
    if (!system_info_read(root, "endian", &info)) {
        NORV_LOG(LOG_ERR, "[%s] doesn't exist, check model name for endian", info.path);
        return kSystemEndianUnknown;
    }
    const std::string_view word = info.line;
    if (word == "big")
        return kSystemEndianBig;
    if (word == "little")
        return kSystemEndianLittle;
    NORV_LOG(LOG_ERR, "unknown endian word [%s]", info.line);
    return kSystemEndianUnknown;
}

int system_endian_get(const char *root, const char *model)
{
    if (root == nullptr && model == nullptr)
        return kSystemEndianLittle;
    const int endian = root != nullptr ? endian_read(root) : kSystemEndianUnknown;
    if (endian != kSystemEndianUnknown || model == nullptr)
        return endian;
    return model_begins(model, kBigModels) ? kSystemEndianBig : kSystemEndianLittle;
}
