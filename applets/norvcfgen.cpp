#include <cstdio>

#include "applets/applets.h"
#include "applets/model_files.h"
#include "lib/file.h"
#include "lib/report.h"

struct ModelValue {
    const char *key;
    char (NORVCfgInfo::*text)[64];
};
static constexpr ModelValue kModelValues[] = {
    {"unique", &NORVCfgInfo::unique},           {"hostname", &NORVCfgInfo::hostname},
    {"supportraid", &NORVCfgInfo::supportraid}, {"maxlanport", &NORVCfgInfo::maxlanport},
    {"maxdisks", &NORVCfgInfo::maxdisks},       {"upnpmodelname", &NORVCfgInfo::upnpmodelname},
};

int model_file_write(const NORVCfgInfo &model, const char *path)
{
    if (model.unique[0] == '\0')
        return 0;
    for (const ModelValue &value : kModelValues) {
        if (NLIBCFileSetKeyValue(path, value.key, model.*value.text, kConfFormat) == 1)
            continue;
        printf("%s:%d(%s) NLIBCFileSetKeyValue([%s], [%s], [%s]) fail.(%X)\n", __FILE_NAME__, __LINE__,
               "NorvConfigGeneratorMain", path, value.key, model.*value.text, static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    return 0;
}

int norvcfgen_main(int /*argc*/, char * /*argv*/[])
{
    NORVCfgInfo model;
    return get_cpld_info(&model) == 0 ? model_file_write(model, kConfPath) : -1;
}
