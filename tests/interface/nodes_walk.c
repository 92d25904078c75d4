/*
 * A walk over the nodes of a store, written in C.
 */
#include <stdio.h>

#include "tav_extcfg_nodes.h"

static void PrintField(FILE *out, const TAV_ExtCfgFieldNode *field) {
    const uint8_t *const value = TAV_ExtCfgFieldValue(field);
    fprintf(out, "field %u: ", (unsigned)TAV_ExtCfgFieldId(field));
    for (uint32_t i = 0; i < TAV_ExtCfgFieldLength(field); ++i) {
        fprintf(out, "%02x", (unsigned)value[i]);
    }
    fprintf(out, "\n");
}

static void PrintRecord(FILE *out, const TAV_ExtCfgRecordNode *record) {
    const TAV_ExtCfgFieldNode *field;
    fprintf(out, "record of class %u\n", (unsigned)TAV_ExtCfgRecordCid(record));
    for (field = TAV_ExtCfgRecordFirstField(record); field != NULL; field = TAV_ExtCfgRecordNextField(record, field)) {
        PrintField(out, field);
    }
}

void PrintNodes(FILE *out, const CfgLocal *local) {
    const TAV_ExtCfgVsNode *vs;
    const TAV_ExtCfgClassNode *classNode;
    const TAV_ExtCfgRecordNode *record;
    for (vs = TAV_ExtCfgLocalFirstVs(local); vs != NULL; vs = TAV_ExtCfgLocalNextVs(local, vs)) {
        fprintf(out, "VS %u\n", (unsigned)vs->vsId);
        for (classNode = TAV_ExtCfgVsFirstClass(vs); classNode != NULL;
             classNode = TAV_ExtCfgVsNextClass(vs, classNode)) {
            fprintf(out, "class %u\n", (unsigned)classNode->cid);
            for (record = TAV_ExtCfgClassFirstRecord(classNode); record != NULL;
                 record = TAV_ExtCfgClassNextRecord(classNode, record)) {
                PrintRecord(out, record);
            }
        }
    }
}
