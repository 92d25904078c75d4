/* A stranger's program in C: makes a store with one record. */
#include <stddef.h>
#include <tav_extcfg.h>
#include <tav_posix.h>
#include <tav_version.h>

int main(int argc, char **argv) {
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    CfgLocal *store = argc == 2 ? TAV_ExtCfgOpen(TAV_EXT_MODE_READ_WRITE, argv[1], NULL) : NULL;
    TAV_ExtCfgRecordNode *record = TAV_ExtCfgRecordNodeCreate(13);
    const uint32_t number = TAV_VERSION_MAJOR;
    TAV_ExtCfgRecordAddFieldValue(record, 14, sizeof(number), &number);
    uint32_t result = TAV_ExtCfgAddRecord(0, record, store);
    if (result == TAV_OK) {
        result = TAV_ExtCfgFlush(store);
    }
    TAV_ExtCfgClose(store);
    return result == TAV_OK ? 0 : 1;
}
