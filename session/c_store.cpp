/*
 * The C interface of stores: names, values, records, JSON.
 */
#include <new>
#include <utility>

#include "session/c_call.h"
#include "tav/json.h"
#include "tav/values.h"

using session::Borrowed;
using session::Give;
using session::Guard;
using session::NamesOf;
using session::RefuseNull;

namespace {

/** Makes a record of fields in bytes. */
tav::Record RecordOf(uint32_t cid, const void *fields, size_t size) {
    tav::Record record(cid);
    session::ForEachField(fields, size, [&](uint32_t fid, std::string_view value) {
        record.Add(fid, tav::Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
    });
    return record;
}

std::string FieldsOf(tav::RecordView record) {
    std::string fields;
    for (const tav::FieldView field : record) {
        session::AppendField(&fields, field.Id(), field.Text());
    }
    return fields;
}

void AppendWord(std::string *bytes, uint32_t word) {
    bytes->append(reinterpret_cast<const char *>(&word), sizeof(word));
}

/** The first record of a class whose key is greater than a given one; the end when there is none. */
tav::ClassView::Iterator Behind(tav::ClassView records, const tav::Record &key) {
    if (TAV_ExtCfgRecordVerify(key.Get()) != TAV_OK) {
        throw tav::Error(TAV_ERR_INVALID, "", "a key field is missing");
    }
    const TAV_RBT_Tree &tree = records.Get()->records;
    const TAV_ExtCfgRecordNode *behind = nullptr;
    for (const TAV_RBT_Node *node = tree.root; node != &tree.sentinel;) {
        const auto *const record = reinterpret_cast<const TAV_ExtCfgRecordNode *>(node);
        const bool isBehind = TAV_ExtCfgRecordCompare(&key.Get()->fields, &record->fields) < 0;
        behind = isBehind ? record : behind;
        node = isBehind ? node->smaller : node->greater;
    }
    return {records.Get(), behind};
}

tav::JsonForm FormOf(uint32_t form) {
    if (form != TAV_JSON_TREE && form != TAV_JSON_LINES) {
        throw tav::Error(TAV_ERR_INVALID, "", "there is no such form of JSON");
    }
    return form == TAV_JSON_TREE ? tav::JsonForm::kTree : tav::JsonForm::kLines;
}

/** Empties what a call is to fill. Returns whether there is such a thing. */
bool Empty(TAV_Bytes *bytes) {
    if (bytes != nullptr) {
        *bytes = {nullptr, 0};
    }
    return bytes != nullptr;
}

}  // namespace

void TAV_BytesFree(TAV_Bytes *bytes) {
    if (bytes != nullptr) {
        ::operator delete(bytes->data);
        *bytes = {nullptr, 0};
    }
}

uint32_t TAV_NamesLoad(const char *path, TAV_Names **names) {
    if (names != nullptr) {
        *names = nullptr;
    }
    if (path == nullptr || names == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        *names = new TAV_Names{tav::Names::Load(path)};
        return TAV_OK;
    });
}

void TAV_NamesFree(TAV_Names *names) {
    delete names;
}

uint32_t TAV_NamesClass(const TAV_Names *names, const char *text, uint32_t *cid) {
    if (text == nullptr || cid == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        *cid = NamesOf(names).ParseClass(text);
        return TAV_OK;
    });
}

uint32_t TAV_NamesField(const TAV_Names *names, uint32_t cid, const char *text, uint32_t *fid) {
    if (text == nullptr || fid == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        *fid = NamesOf(names).ParseField(cid, text);
        return TAV_OK;
    });
}

uint32_t TAV_NamesClassText(const TAV_Names *names, uint32_t cid, TAV_Bytes *text) {
    if (!Empty(text)) {
        return RefuseNull();
    }
    return Guard([&] {
        Give(NamesOf(names).ClassText(cid), text);
        return TAV_OK;
    });
}

uint32_t TAV_NamesFieldText(const TAV_Names *names, uint32_t cid, uint32_t fid, TAV_Bytes *text) {
    if (!Empty(text)) {
        return RefuseNull();
    }
    return Guard([&] {
        Give(NamesOf(names).FieldText(cid, fid), text);
        return TAV_OK;
    });
}

uint32_t TAV_ValueKind(uint32_t fid) {
    static_assert(static_cast<int>(tav::Kind::kOpaque) == TAV_KIND_OPAQUE);
    session::CompleteTypeTable();  // whoever asks will ask for the length, too
    return static_cast<uint32_t>(tav::KindOf(fid));
}

uint32_t TAV_ValueParse(uint32_t fid, const char *text, size_t length, TAV_Bytes *value) {
    if (!Empty(value) || text == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        Give(tav::ParseValue(fid, {text, length}), value);
        return TAV_OK;
    });
}

uint32_t TAV_ValueFormat(uint32_t fid, const void *value, size_t size, TAV_Bytes *text) {
    if (!Empty(text) || value == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        if (size > TAV_GetExtTlvDataLen(fid)) {
            throw tav::Error(TAV_ERR_INVALID, "", "the value is longer than the field may be");
        }
        Give(tav::FormatValue(fid, {static_cast<const char *>(value), size}), text);
        return TAV_OK;
    });
}

uint32_t TAV_StoreNew(CfgLocal **local) {
    if (local == nullptr) {
        return RefuseNull();
    }
    *local = nullptr;
    return Guard([&] {
        *local = tav::Store::New("/new").Release();
        return TAV_OK;
    });
}

uint32_t TAV_StoreListVs(CfgLocal *local, TAV_Bytes *ids) {
    if (!Empty(ids) || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        std::string words;
        Borrowed store(local);
        for (const tav::VsView vs : *store) {
            AppendWord(&words, vs.Id());
        }
        Give(words, ids);
        return TAV_OK;
    });
}

uint32_t TAV_StoreListClasses(CfgLocal *local, uint32_t vsId, TAV_Bytes *ids) {
    if (!Empty(ids) || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        std::string words;
        if (const std::optional<tav::VsView> vs = Borrowed(local)->FindVs(vsId)) {
            for (const tav::ClassView records : *vs) {
                if (records.begin() != records.end()) {
                    AppendWord(&words, records.Cid());
                }
            }
        }
        Give(words, ids);
        return TAV_OK;
    });
}

uint32_t TAV_StoreCount(CfgLocal *local, uint32_t vsId, uint32_t cid) {
    if (local == nullptr) {
        return 0;
    }
    const TAV_ExtCfgClassNode *const records = Borrowed(local)->Records(vsId, cid).Get();
    return records != nullptr ? records->recordCount : 0;
}

uint32_t TAV_StoreFind(CfgLocal *local, uint32_t vsId, uint32_t cid, const void *key, size_t keySize,
                       TAV_Bytes *fields) {
    if (!Empty(fields) || local == nullptr || (key == nullptr && keySize != 0)) {
        return RefuseNull();
    }
    return Guard([&] {
        const tav::Record wanted = RecordOf(cid, key, keySize);
        const std::optional<tav::RecordView> found = Borrowed(local)->Find(vsId, wanted);
        if (!found) {
            throw tav::Error(TAV_ERR_NOT_FOUND, tav::DescribeRecord(vsId, wanted.View()), "there is no such record");
        }
        Give(FieldsOf(*found), fields);
        return TAV_OK;
    });
}

uint32_t TAV_StoreRead(CfgLocal *local, uint32_t vsId, uint32_t cid, const void *after, size_t afterSize, size_t room,
                       TAV_Bytes *records) {
    if (!Empty(records) || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        std::string bytes;
        const tav::ClassView all = Borrowed(local)->Records(vsId, cid);
        auto at = after != nullptr && all.Get() != nullptr ? Behind(all, RecordOf(cid, after, afterSize)) : all.begin();
        for (; at != std::default_sentinel && (bytes.empty() || bytes.size() < room); ++at) {
            const std::string fields = FieldsOf(*at);
            AppendWord(&bytes, static_cast<uint32_t>(fields.size()));
            bytes += fields;
        }
        Give(bytes, records);
        return TAV_OK;
    });
}

uint32_t TAV_StoreToJson(CfgLocal *local, uint32_t form, const TAV_Names *names, TAV_Bytes *text) {
    if (!Empty(text) || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        std::string whole;
        tav::WriteJson(
            *Borrowed(local), FormOf(form), [&](std::string_view piece) { whole += piece; }, NamesOf(names));
        Give(whole, text);
        return TAV_OK;
    });
}

uint32_t TAV_StoreFromJson(CfgLocal *local, uint32_t form, const char *text, size_t length, const TAV_Names *names,
                           size_t *count) {
    if (local == nullptr || text == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        const size_t records = tav::ReadJson({text, length}, FormOf(form), &*Borrowed(local), NamesOf(names));
        if (count != nullptr) {
            *count = records;
        }
        return TAV_OK;
    });
}
