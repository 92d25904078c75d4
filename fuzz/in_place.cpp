// Changing a record inside a file of any content: what was refused left the file alone, and what loaded still loads.
#include <set>

#include "support.h"

void Fuzz(FuzzedDataProvider *input) {
    const uint32_t vsId = input->ConsumeBool(), cid = input->PickValueInArray({7u, 13u, 26u, 1u});
    const Record record(TAV_ExtCfgRecordNodeCreate(cid));
    std::set<uint32_t> fids = {cid == 7 ? 8u : 14u};  // the key, and up to four others
    while (fids.size() < 5 && input->ConsumeBool()) {
        fids.insert(input->ConsumeIntegralInRange<uint32_t>(9, 30));
    }
    for (const uint32_t fid : fids) {
        const auto length = input->ConsumeIntegralInRange<uint32_t>(0, 24);
        const Bytes value = Join({input->ConsumeBytes<uint8_t>(length), Bytes(25)});
        TAV_ExtCfgRecordAddFieldValue(record.get(), fid, length, value.data());
    }
    const auto [before, refer] = TakeImage(input);
    const std::string path = Scratch("in_place.dat");
    WriteFile(path, before);
    const bool isSet = TAV_ExtCfgSetRecordToFile(vsId, record.get(), path.c_str(), refer) == TAV_OK;
    const Bytes after = ReadFile(path);
    assert(after.size() == before.size());
    assert(isSet || after == before);
    uint32_t codeBefore = 0, codeAfter = 0;
    Parse(before, refer, &codeBefore);
    AssertSound(Parse(after, refer, &codeAfter), Scratch("after.dat"), refer);
    assert(codeBefore != TAV_OK || codeAfter == TAV_OK);
}
