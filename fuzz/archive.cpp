// Archives, damaged ones and sound ones of damaged images: loaded as a store, read as text, and unpacked.
#include "platform/bex_zip.h"
#include "support.h"
#include "tav_common.h"

void Fuzz(FuzzedDataProvider *input) {
    const std::string path = Scratch("archive.zip"), folder = Scratch("cage/inner"), temporary = Scratch("tmpfs");
    if (input->ConsumeBool()) {
        const Bytes image = TakeImage(input).first;
        TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), path.c_str());
    } else {
        WriteFile(path, input->ConsumeRemainingBytes<uint8_t>());
    }
    if (const Store store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, path.c_str(), nullptr)); store != nullptr) {
        AssertSound(store, Scratch("copy.zip"), nullptr);
    }
    TAV_ZipCb block;
    if (TAV_UnZipStart(&block, path.c_str()) == 0) {
        while (TAV_GetCharFromZip(&block) != 0) {
        }
        TAV_UnZipEnd(&block);
    }
    for (const auto &entry : std::filesystem::recursive_directory_iterator(temporary)) {
        assert(entry.path().parent_path() == temporary);  // the folder of the temporary ones is all that stays
    }
    std::filesystem::create_directories(folder);
    BEX_Unzip(path.c_str(), folder.c_str());
    assert(BEX_DeleteDir(folder.c_str()) == 0 && std::filesystem::is_empty(Scratch("cage")));
}
