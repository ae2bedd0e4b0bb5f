#include <cstdio>
#include <cstring>

#include "applets/applets.h"
#include "applets/model_files.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kWord[] = "NorvHDConfigGeneratorMain"; // in the lines it prints

int model_file_adopt(const NORVCfgInfo &model, const char *path)
{
    if (model.mass_production_group[0] == '\0')
        return 0;
    if (!NLIBCFileIsRegular(path)) {
        printf("%s: fail to get file %s\n", kWord, path);
        return 0;
    }
    char unique[64];
    if (NLIBCFileGetKeyValue(path, "unique", unique, sizeof(unique), 0) <= kEmptyValue) {
        printf("%s: Fail to get value of [%s] in [%s], skip share hardware fixing\n", kWord, "unique", path);
        return 0;
    }
    if (strcmp(unique, model.unique) == 0)
        return 0;
    if (strcmp(unique, model.mass_production_group) != 0) {
        printf("%s: [%s] and [%s] are not in one mass production group\n", kWord, unique, model.unique);
        return 0;
    }
    if (NLIBCFileSetKeyValue(path, "unique", model.unique, kConfFormat) != 1) {
        printf("%s:%d(%s) set [%s] = [%s] in [%s] fail.(%X)\n", __FILE_NAME__, __LINE__, kWord, "unique", model.unique,
               path, static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    if (NLIBCFileSetKeyValue(path, "upnpmodelname", model.upnpmodelname, kConfFormat) != 1) {
        printf("%s:%d(%s) set [upnpmodelname] = %s in [%s] fail.(%X)\n", __FILE_NAME__, __LINE__, kWord,
               model.upnpmodelname, path, static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    return 0;
}

int norvhdcfgen_main(int argc, char *argv[])
{
    char path[4095];
    if (argc != 2 || argv[1][0] == '\0' ||
        NLIBCStrSnprintf(path, sizeof(path), "%s//etc.defaults/norvinfo.conf", argv[1]) < 0)
        return -1;
    NORVCfgInfo model;
    return get_cpld_info(&model) == 0 ? model_file_adopt(model, path) : -1;
}
