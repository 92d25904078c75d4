/*
 * Start of a test program: a working directory of its own for the log, and the start-up call of a host.
 */
#include <cstdlib>

#include <filesystem>

#include "store.h"

static const std::vector<TAV_ExtTlvDataTypeRow> g_shippedTypes(std::begin(g_astExtTlvDataTypeTbl),
                                                               std::end(g_astExtTlvDataTypeTbl));

const std::vector<TAV_ExtTlvDataTypeRow> &ShippedTypeTable() {
    return g_shippedTypes;
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    TempFolder workFolder;
    std::filesystem::create_directories(workFolder.Path("var/log"));
    setenv("TAV_WORK_PATH", (workFolder.Path() + "/").c_str(), 1);
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    return RUN_ALL_TESTS();
}
