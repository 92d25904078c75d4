/*
 * Parsing a file image into a store, or searching it for one record.
 */
#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/nodes/class.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/field_room.h"
#include "extcfg/nodes/record.h"

using extcfg::FieldRoom;

namespace {

constexpr uint32_t kFound = 1;  // ends every enclosing walk: the record wanted has been found

// The names under which their helpers log.
constexpr char kParseRecord[] = "TAV_ParseExtCfgRecordNode";
constexpr char kParseField[] = "TAV_ParseExtCfgFieldNode";

/** Reads a field from its TLV's value into a record. Reports under the name of TAV_ParseExtCfgFieldNode. */
uint32_t ReadField(uint32_t type, uint8_t *value, uint32_t length, FieldRoom *room) {
    TAV_ExtCfgFieldNode *field = room->Take(type, length);
    if (field == nullptr) {
        LOG_AS(kParseField, "Null pointer, return 0x%x", TAV_ERR_NO_MEMORY);
        return TAV_ERR_NO_MEMORY;
    }
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, extcfg::ValueToFill(field));
    if (result != TAV_OK) {
        room->Return(field);  // before the failure is reported
        LOG_AS(kParseField, "Convert endian failed, TLV type=%d, return 0x%x", type, result);
        return result;
    }
    extcfg::RecordAppendField(room->Record(), field);
    return TAV_OK;
}

/** As the exported visitor, for a record whose block has room. */
uint32_t ReadLoadedField(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    return ReadField(type, value, length, static_cast<FieldRoom *>(context));
}

/** Returns the room that the fields of a record take, from the value of its TLV; as far as they are well-formed. */
uint16_t RoomFor(const uint8_t *value, uint32_t length) {
    uint32_t room = 0;
    for (uint32_t left = value != nullptr ? length : 0; left >= TAV_EXT_TLV_HEAD_SIZE;) {
        const uint32_t fieldLength = extcfg::TlvLength(value);
        left -= TAV_EXT_TLV_HEAD_SIZE;
        if (fieldLength > left || extcfg::PackedSize(fieldLength) > UINT16_MAX - room) {
            break;  // damaged, or more than most records hold: what does not fit gets blocks of its own
        }
        room += extcfg::PackedSize(fieldLength);
        value += extcfg::TlvSize(value);
        left -= fieldLength;
    }
    return static_cast<uint16_t>(room);
}

/** Reads a record's fields and checks that its key is complete. */
uint32_t ReadRecord(TAV_ExtCfgRecordNode *record, uint8_t *value, uint32_t length) {
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    FieldRoom room(record);
    uint32_t result = TAV_ExtTlvProcForEach(ReadLoadedField, value, length, &room);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Parse record failed, cid=%d, return 0x%x", cid, result);
        return result;
    }
    result = TAV_ExtCfgRecordVerify(record);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Verify record failed, cid=%d, return 0x%x", cid, result);
    }
    return result;
}

/** Adds a record to its class in a VS, which owns it on success. */
uint32_t LoadRecord(TAV_ExtCfgVsNode *vs, TAV_ExtCfgRecordNode *record) {
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(vs, cid);
    if (classNode == nullptr) {
        LOG_AS(kParseRecord, "Get class instance failed, cid=%d", cid);
        return TAV_ERR_NO_MEMORY;
    }
    const uint32_t result = extcfg::ClassAddRecord(classNode, record);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Add record failed, cid=%d, return 0x%x", cid, result);
    }
    return result;
}

/** Notes where the record that was searched for stands in the image. */
uint32_t NoteFound(TAV_ExtCfgFileContext *file, uint8_t *value, uint32_t length) {
    file->foundValue = value;
    file->foundLength = length;
    return kFound;
}

}  // namespace

uint32_t TAV_ParseExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context) {
    uint32_t result = TAV_CheckExtCfgFileData(image, size, context);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "File data is invalid");
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgVsNode, image + context->headSize, size - context->headSize, context);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgVsNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    FAIL_IF_NULL(TAV_ERR_NULL, value, context);
    if (type != EXT_TLV_VS) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    uint32_t vsId = 0;
    uint32_t result = TAV_ExtTlvGetValue_UINT32(value, length, EXT_TLV_VS_ID, &vsId);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    if (file->vsFilter != nullptr && *file->vsFilter != vsId) {
        return TAV_OK;
    }
    if (file->local != nullptr) {
        file->currentVs = TAV_ExtCfgVsNodeGetInstance(file->local, vsId);
        FAIL_IF_NULL(TAV_ERR_NO_MEMORY, file->currentVs);
    }
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgRecordNode, value, length, file);
    file->currentVs = nullptr;
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgRecordNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    // The class of a record is its TLV type; what is no container (the VS id, an unknown type) is no record.
    if (TAV_GetExtTlvDataType(type) != TAV_EXT_DATA_TYPE_CONTAINER) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    if (file->recordCond != nullptr && TAV_ExtCfgRecordCid(file->recordCond) != type) {
        return TAV_OK;
    }
    extcfg::OwnedRecord record(extcfg::TakeRecord(type, RoomFor(value, length)));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, record);
    uint32_t result = ReadRecord(record.get(), value, length);
    if (result != TAV_OK) {
        return result;
    }
    if (TAV_ExtCfgRecordMatchCond(record.get(), file->recordCond) == 0) {
        return TAV_OK;
    }
    if (file->currentVs == nullptr) {
        return NoteFound(file, value, length);
    }
    result = LoadRecord(file->currentVs, record.get());
    if (result == TAV_OK) {
        static_cast<void>(record.release());  // the class's now
    }
    return result;
}

uint32_t TAV_ParseExtCfgFieldNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    auto *record = static_cast<TAV_ExtCfgRecordNode *>(context);
    auto room = FieldRoom::None(record);
    return ReadField(type, value, length, &room);
}
