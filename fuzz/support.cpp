#include "support.h"

#include "tav_common.h"
#include "tav_posix.h"

static Bytes BodyOf(const Store &store) {
    Bytes body(TAV_CalcExtCfgFileBodySize(store.get()) + 1);
    const auto size = static_cast<uint32_t>(body.size() - 1);
    assert(TAV_BuildExtCfgFileBody(store.get(), body.data(), size) == TAV_OK);
    return Slice(body, 0, size);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    for (const auto &[folder, name] : {std::pair("", "WORK"), {"tmpfs", "TMPFS"}, {"bus", "BUS"}, {"var/log", "LOG"}}) {
        std::filesystem::create_directories(Scratch(folder));
        setenv(("TAV_" + std::string(name) + "_PATH").c_str(), Scratch(folder).c_str(), 1);
    }
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    g_ucTavDebugFlag = size % 16 == 0;  // now and then, so that the log's formats are seen as well
    TAV_Posix_MemAccount before, after;
    TAV_Posix_MemTotal(&before);
    FuzzedDataProvider input(data, size);
    Fuzz(&input);
    TAV_Posix_MemTotal(&after);
    assert(after.blocks == before.blocks && after.bytes == before.bytes);
    return 0;
}

std::string Scratch(const std::string &name) {
    static const TempFolder folder;
    return folder.Path() + "/" + name;
}

std::pair<Bytes, const char *> TakeImage(FuzzedDataProvider *input) {
    static const std::string path = Scratch("refer.dat");
    WriteFile(path, Image(VsTlv(9, {})));
    const auto form = input->ConsumeIntegralInRange(0, 3);
    const Bytes field = form == 3 ? Tlv(20, Sha256(VsTlv(9, {}))) : input->ConsumeBytes<uint8_t>(form == 2 ? 12 : 0);
    const Bytes rest = input->ConsumeRemainingBytes<uint8_t>();
    const std::vector<Bytes> head = {Tlv(5, Sha256(rest)), Tlv(3, {8, 0, 0, 0}), Tlv(4, Bytes(12)), field};
    return {form == 0 ? rest : ImageWithHead(head, rest), form == 3 ? path.c_str() : nullptr};
}

Store Parse(Bytes image, const char *refer, uint32_t *code) {
    Store store(TAV_ExtCfgLocalCreate(TAV_EXT_MODE_READ_WRITE, Scratch("store.dat").c_str(), refer));
    TAV_ExtCfgFileContext context = {};
    context.local = store.get();
    context.referPath = refer;
    const Bytes before = image;
    *code = TAV_ParseExtCfgFileData(image.data(), static_cast<uint32_t>(image.size()), &context);
    assert(image == before);
    return store;
}

void AssertSound(const Store &store, const std::string &path, const char *refer) {
    for (const uint32_t cid : {1u, 2u, 7u, 13u, 26u}) {
        TAV_ExtCfgStartQuery(0, Record(TAV_ExtCfgRecordNodeCreate(cid)).get(), store.get());
        while (const TAV_ExtCfgRecordNode *record = TAV_ExtCfgGetNextRecord(store.get())) {
            assert(TAV_ExtCfgGetRecord(0, record, store.get()) == record);
        }
    }
    const Bytes body = BodyOf(store);
    assert(TAV_WriteExtCfgFile(path.c_str(), store.get()) == TAV_OK && FileExists(path) != body.empty());
    const Store again(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, path.c_str(), refer));
    assert(body.empty() || (again != nullptr && BodyOf(again) == body));
    std::filesystem::remove(path);
}
