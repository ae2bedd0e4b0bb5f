#include "lib/system/system.h"
#include "lib/system/system_info.h"

static constexpr std::string_view k32BitModels[] = {"ppc", "powerpc", "88f"};

int system_bit_get(const char *root, const char *model)
{
    if (root == nullptr && model == nullptr)
        return 64;
    const int bits = root != nullptr ? system_info_number(root, "bits") : -1;
    if (bits > 0 || model == nullptr)
        return bits;
    return model_begins(model, k32BitModels) ? 32 : 64;
}
