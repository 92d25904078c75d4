/*
 * Start of a test program: a working directory of its own for the log, and the start-up call of a host.
 */
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "interposer.h"
#include "store.h"
#include "tav_posix.h"

static std::vector<TAV_ExtTlvDataTypeRow> g_shippedTypes;

const std::vector<TAV_ExtTlvDataTypeRow> &ShippedTypeTable() {
    return g_shippedTypes;
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    TempFolder workFolder;
    std::filesystem::create_directories(workFolder.Path("var/log"));
    setenv("TAV_WORK_PATH", (workFolder.Path() + "/").c_str(), 1);
    g_shippedTypes.assign(std::begin(g_astExtTlvDataTypeTbl), std::end(g_astExtTlvDataTypeTbl));
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    interposer::Reset();
    return RUN_ALL_TESTS();
}
