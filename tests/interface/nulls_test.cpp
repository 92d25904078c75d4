/*
 * What the exported functions answer to a null where they need an argument.
 */
#include "aru_detect.h"
#include "store.h"
#include "tav_common.h"
#include "tav_crypt.h"
#include "tav_ftpci.h"
#include "tav_rbtree.h"
#include "tav_vector.h"

namespace {

constexpr uint32_t kMinus1 = 0xFFFFFFFF;
constexpr uint32_t kNull = 0x801619;

// Something to stand where the other arguments are given. Nothing of it must be touched.
char text[] = "text";
uint8_t bytes[8] = {};
uint32_t word = 7;
uint16_t half = 7;
const TAV_SYS_PASSWORD_S kPassword = {};

TEST(Nulls, Store) {
    uint8_t *buffer = bytes;
    TAV_ExtCfgFileContext context = {};
    const Record record = MakeRecord(13, {{14, Host32(1)}});
    EXPECT_EQ(TAV_GetFileSize(nullptr, &word), kNull);
    EXPECT_EQ(TAV_GetFileSize(text, nullptr), kNull);
    for (const auto read : {TAV_ReadFileToBuffer, TAV_UnZipExtCfgFileToBuffer}) {
        EXPECT_EQ(read(nullptr, &word, text), kNull);
        EXPECT_EQ(read(&buffer, nullptr, text), kNull);
        EXPECT_EQ(read(&buffer, &word, nullptr), kNull);
    }
    for (const auto write : {TAV_WriteBufferToFile, TAV_ZipBufferToExtCfgFile}) {
        EXPECT_EQ(write(nullptr, 1, text), kNull);
        EXPECT_EQ(write(bytes, 1, nullptr), kNull);
    }
    EXPECT_EQ(TAV_WriteFileAtOffset(nullptr, 1, text, 0), kNull);
    EXPECT_EQ(TAV_WriteFileAtOffset(bytes, 1, nullptr, 0), kNull);
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(nullptr), 0u);
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(nullptr), 0u);
    EXPECT_EQ(TAV_BuildExtCfgFileBody(nullptr, bytes, 8), kNull);
    EXPECT_EQ(TAV_CalcChecksum(nullptr, 1, bytes, 8), kNull);
    EXPECT_EQ(TAV_CalcChecksum(bytes, 1, nullptr, 8), kNull);
    EXPECT_EQ(TAV_CheckExtCfgFileData(nullptr, 1, &context), kNull);
    EXPECT_EQ(TAV_CheckExtCfgFileData(bytes, 1, nullptr), kNull);
    EXPECT_EQ(TAV_ParseExtCfgVsNode(0, nullptr, 1, &context), kNull);
    EXPECT_EQ(TAV_ParseExtCfgVsNode(0, bytes, 1, nullptr), kNull);
    EXPECT_EQ(TAV_LoadExtCfgFile(nullptr, &context), kNull);
    EXPECT_EQ(TAV_LoadExtCfgFile(text, nullptr), kNull);
    EXPECT_EQ(TAV_GetAbsPath(nullptr, text, 4), kNull);
    EXPECT_EQ(TAV_GetAbsPath(text, nullptr, 4), kNull);
    EXPECT_EQ(TAV_ExtCfgGetRecord(0, record.get(), nullptr), nullptr);
    EXPECT_EQ(TAV_ExtCfgVsNodeFind(nullptr, 0), nullptr);
    EXPECT_EQ(TAV_ExtCfgEndQuery(nullptr), 0x801617u);
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, nullptr, text, nullptr), nullptr);
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, record.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(nullptr, record.get()), kNull);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(record.get(), nullptr), kNull);
    EXPECT_EQ(TAV_ExtTlvProcForEach(nullptr, bytes, 8, nullptr), kNull);
    EXPECT_EQ(TAV_ExtTlvProcForEach(TAV_ParseExtCfgVsNode, nullptr, 8, nullptr), kNull);
    TAV_ExtCfgLocalFree(nullptr);
    TAV_ExtCfgVsNodeFree(nullptr);
    TAV_ExtCfgClassNodeFree(nullptr);
    TAV_ExtCfgRecordNodeFree(nullptr);
    EXPECT_EQ(buffer, bytes);
    EXPECT_EQ(word, 7u);
}

TEST(Nulls, Crypt) {
    for (const auto verify : {TAV_VerifySystemPassword, TAV_VerifySystemPassword_Enh, TAV_VerifyV5SHACipher}) {
        EXPECT_EQ(verify(nullptr, text, text), kMinus1);
        EXPECT_EQ(verify(text, nullptr, text), kMinus1);
    }
    for (const auto verify : {TAV_CRYPT_VerifyPassword, TAV_VerifySHACipher}) {
        EXPECT_EQ(verify(nullptr, text), kMinus1);
        EXPECT_EQ(verify(text, nullptr), kMinus1);
    }
    for (const auto encrypt : {TAV_CRYPT_EncryptPassword, TAV_EncryptSystemPassword}) {
        EXPECT_EQ(encrypt(nullptr, text, 4), kMinus1);
        EXPECT_EQ(encrypt(text, nullptr, 4), kMinus1);
    }
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(nullptr, 4, text, 4), kMinus1);
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(text, 4, nullptr, 4), kMinus1);
    EXPECT_EQ(TAV_CRYPT_Decrypt(nullptr, text, 4, text), kMinus1);
    EXPECT_EQ(TAV_CRYPT_Decrypt(text, nullptr, 4, text), kMinus1);
    EXPECT_EQ(TAV_DecryptAndVerify_Enh(nullptr, text, text, &kPassword, text), kMinus1);
    EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(nullptr, text, &kPassword, text), kMinus1);
    EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(text, text, nullptr, text), kMinus1);
    EXPECT_EQ(TAV_CheckSystemPassword(nullptr), kMinus1);
    EXPECT_EQ(TAV_GetPasswordType(nullptr), 0u);
    EXPECT_EQ(TAV_CRYPT_IsCipher(nullptr, 4, &word, text), 0u);
    EXPECT_EQ(TAV_IsStringCipher_EnhExp(nullptr), 0u);
    EXPECT_EQ(TAV_IsStringIrreversibleCipher(nullptr), 0u);
    EXPECT_EQ(TAV_IsStringV5SHACipher(nullptr, text), 1u);
    EXPECT_EQ(TAV_PasswordTooShort(nullptr, 0, 0), 1u);
    EXPECT_EQ(TAV_PasswordTooSimple(nullptr, 1, 1, &word), 1u);
    EXPECT_EQ(TAV_PasswordTooSimple(text, 1, 1, nullptr), 1u);
    EXPECT_EQ(TAV_PasswordAndUsernameSimilarCheck(nullptr, text, 1), 1u);
    EXPECT_EQ(TAV_PasswordAndUsernameSimilarCheck(text, nullptr, 1), 1u);
    EXPECT_EQ(TAV_PasswordSameWithHistory(nullptr, 1, 1, std::array<const char *, 20>().data()), 1u);
    EXPECT_EQ(TAV_PasswordSameWithHistory(text, 1, 1, nullptr), 1u);
    EXPECT_EQ(TAV_StrValidate(nullptr, 1, 1, 1), kMinus1);
    EXPECT_EQ(TAV_StrValidate("", 0, 0, 0), 0u);
    TAV_ReverseStr(nullptr, 4, text);
    TAV_ReverseStr(text, 4, nullptr);

    EXPECT_EQ(TAV_LongToDesEnhSys(1, nullptr), kMinus1);
    EXPECT_EQ(TAV_DesEnhSysToLong(nullptr, &word), kMinus1);
    EXPECT_EQ(TAV_DesEnhSysToLong(bytes, nullptr), kMinus1);
    EXPECT_EQ(TAV_BinToAscii(nullptr, 4, bytes, &word), kMinus1);
    EXPECT_EQ(TAV_BinToAscii(text, 4, nullptr, &word), kMinus1);
    EXPECT_EQ(TAV_BinToAscii(text, 4, bytes, nullptr), kMinus1);
    EXPECT_EQ(TAV_AsciiToBinAndGetLen(nullptr, text, 5, &half), kMinus1);
    EXPECT_EQ(TAV_AsciiToBin(nullptr, 5, text, 4, &half), kMinus1);
    EXPECT_EQ(TAV_AsciiToBin(bytes, 5, nullptr, 4, &half), kMinus1);
    EXPECT_EQ(TAV_AsciiVisible(nullptr, 1, text, 4), kMinus1);
    EXPECT_EQ(TAV_AsciiVisible(bytes, 1, nullptr, 4), kMinus1);
    EXPECT_EQ(TAV_AsciiUnvisible(nullptr, bytes, &word), kMinus1);
    EXPECT_EQ(TAV_AsciiUnvisible(text, nullptr, &word), kMinus1);
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(half, 7u);
}

TEST(Nulls, Common) {
    EXPECT_EQ(TAV_GetSubIfHandler(1, 1, nullptr), nullptr);
    EXPECT_EQ(TAV_GetMsgHandlerByCmd(1, nullptr), nullptr);
    EXPECT_EQ(TAV_GetConstructHandlerByStage(1, nullptr), nullptr);
    EXPECT_EQ(TAV_GetMsgHandleByState(1, 0, nullptr, 1), nullptr);
    const FSM_Transition table = {};
    EXPECT_EQ(FSM_Process(0, nullptr, &table, 1, 0, 0, 0), kMinus1);
    EXPECT_EQ(FSM_Process(0, &word, nullptr, 1, 0, 0, 0), kMinus1);
    TAV_FSM machine = {};
    TAV_FSM_Init(nullptr, 0, nullptr, 0, 0);
    EXPECT_EQ(TAV_FSM_Run(nullptr, 1, 0), 0x800000u);
    EXPECT_EQ(TAV_FSM_Run_Base(nullptr, 1, 0, &half), 0x800000u);
    EXPECT_EQ(TAV_FSM_DumpDiagnoseInfo(&machine, nullptr, text, 4), 0u);
    EXPECT_EQ(TAV_DEBUG_OpenLogFile(nullptr), nullptr);

    TAV_ZipCb block = {};
    EXPECT_EQ(TAV_ZipStart(0, nullptr, text), kMinus1);
    EXPECT_EQ(TAV_ZipStart(0, &block, nullptr), kMinus1);
    EXPECT_EQ(TAV_GetZipBufferSize(nullptr, 1), kMinus1);
    EXPECT_EQ(TAV_Zip(nullptr), kMinus1);
    EXPECT_EQ(TAV_ZipEnd(nullptr), kMinus1);
    EXPECT_EQ(TAV_UnZipStart(nullptr, text), kMinus1);
    EXPECT_EQ(TAV_UnZipStart(&block, nullptr), kMinus1);
    EXPECT_EQ(TAV_UnZip(&block, &word), kMinus1);
    EXPECT_EQ(TAV_GetCharFromZip(nullptr), 0);
    EXPECT_EQ(TAV_UnZipEnd(nullptr), kMinus1);
    EXPECT_EQ(CMF_GetUnZipTmpDir(nullptr, 4), kMinus1);
    EXPECT_EQ(CMF_GetZipFileNameInZip(nullptr, text), kMinus1);
    EXPECT_EQ(CMF_GetZipFileNameInZip(text, nullptr), kMinus1);
}

TEST(Nulls, ContainersTransfersEvents) {
    VEC_Vector vector = {};
    TAV_RBT_Init(nullptr, nullptr, nullptr);
    EXPECT_EQ(VEC_Bzero(nullptr, 4), -1);
    EXPECT_EQ(VEC_Bcopy(nullptr, 4, text, 4), -1);
    EXPECT_EQ(VEC_Bcopy(text, 4, nullptr, 4), -1);
    EXPECT_EQ(VEC_VectorCopy_F(0, &vector, nullptr, text, 1), -1);
    EXPECT_EQ(VEC_VectorEnsure(nullptr, 0), -1);
    EXPECT_EQ(VEC_VectorEmptySlot(nullptr), -1);
    EXPECT_EQ(VEC_VectorSetIndex(nullptr, 0, 1), -1);
    EXPECT_EQ(VEC_VectorGetUnset(nullptr, 0), 0u);
    EXPECT_EQ(VEC_VectorCount(nullptr), -1);

    const NFTPCI_CommHandle handle = {};
    const NFTPCI_ReqParam param = {};
    const void *tlv = nullptr;
    EXPECT_EQ(NFTPCI_CreateReqMsg(nullptr, &handle), nullptr);
    EXPECT_EQ(NFTPCI_CreateReqMsg(&param, nullptr), nullptr);
    EXPECT_EQ(NFTPCI_GetDataByTlvType(nullptr, 1, &tlv), kMinus1);
    EXPECT_EQ(NFTPCI_GetDataByTlvType(bytes, 1, nullptr), kMinus1);

    EXPECT_EQ(ARU_Detect_FilterEx(nullptr, 0, 0), 2u);
    EXPECT_EQ(ARU_Detect_FilterEx4CliEvent(nullptr, 0, 0), 2u);
    ARU_Detect_EnableDebug(nullptr);
    ARU_Detect_DisableDebug(nullptr);
}

}  // namespace
