/*
 * What the exported functions answer to a null where they need an argument, and what those of the store report.
 */
#include <sstream>
#include <type_traits>

#include "aru_detect.h"
#include "debug_log.h"
#include "store.h"
#include "tav_common.h"
#include "tav_crypt.h"
#include "tav_extcfg_nodes.h"
#include "tav_ftpci.h"
#include "tav_rbtree.h"
#include "tav_vector.h"

namespace {

constexpr uint32_t kMinus1 = 0xFFFFFFFF, kNull = 0x801619, kInvalid = 0x801617;

// Something to stand where the other arguments are given. Nothing of it must be touched.
char text[] = "text";
uint8_t bytes[8] = {};
uint32_t word = 7;
uint16_t half = 7;
const TAV_SYS_PASSWORD_S kPassword = {};
VEC_Vector vector = {};
TAV_FSM machine = {};
TAV_ZipCb block = {};
bool reports = false;  // whether the functions that are called report

/** Expects a function's report of a null as the last one. */
template <typename Answer>
void ExpectReport(const char *name, Answer answer, bool isStore) {
    uint64_t shown = 0;
    if constexpr (std::is_integral_v<Answer>) {
        shown = static_cast<uint64_t>(answer);
    }
    std::ostringstream message;
    isStore ? message << "Invalid CfgLocal" : message << "Null pointer, return 0x" << std::hex << shown;
    std::vector<LogEntry> entries = DebugLog::Take();
    entries.erase(entries.begin(), entries.end() - (entries.empty() ? 0 : 1));
    EXPECT_EQ(entries, reports ? std::vector<LogEntry>({{name, message.str()}}) : std::vector<LogEntry>());
}

/** Calls a function with one of its arguments null. */
template <size_t kAt, typename Answer, typename... Parameters>
void ExpectOfNull(const char *name, Answer answer, Answer (*function)(Parameters...),
                  std::tuple<Parameters...> arguments) {
    if constexpr (std::is_pointer_v<std::tuple_element_t<kAt, std::tuple<Parameters...>>>) {
        if (std::exchange(std::get<kAt>(arguments), nullptr) != nullptr) {
            SCOPED_TRACE(std::string(name) + ", argument " + std::to_string(kAt + 1));
            EXPECT_EQ(std::apply(function, arguments), answer);
            const auto argument = std::get<kAt>(arguments);
            ExpectReport(name, answer, std::is_convertible_v<decltype(argument), const CfgLocal *>);
        }
    }
}

/** Calls a function with each of its pointers null in turn. One that is null in the arguments given stays so. */
template <typename Answer, typename... Parameters>
void ExpectOfNulls(const char *name, std::type_identity_t<Answer> answer, Answer (*function)(Parameters...),
                   std::type_identity_t<Parameters>... arguments) {
    [&]<size_t... kAt>(std::index_sequence<kAt...>) {
        (ExpectOfNull<kAt>(name, answer, function, std::tuple<Parameters...>(arguments...)), ...);
    }
    (std::index_sequence_for<Parameters...>());
}

#define EXPECT_OF_NULLS(answer, function, ...) ExpectOfNulls(#function, answer, function, __VA_ARGS__)

struct Nulls : testing::Test {
    const DebugLog log;
    ~Nulls() override {
        EXPECT_STREQ(text, "text");
        EXPECT_EQ(Bytes(bytes, bytes + 8), Bytes(8));
        EXPECT_EQ(word, 7u);
        EXPECT_EQ(half, 7u);
        reports = false;
    }
};

TEST_F(Nulls, Store) {
    reports = true;
    uint8_t *buffer = bytes;
    TAV_ExtCfgFileContext context = {};
    const Record record = MakeRecord(13, {{14, Host32(1)}});
    const Store store(TAV_ExtCfgLocalCreate(2, "/nowhere/a.dat", nullptr));
    EXPECT_OF_NULLS(kNull, TAV_GetFileSize, text, &word);
    EXPECT_OF_NULLS(kNull, TAV_ReadFileToBuffer, &buffer, &word, text);
    EXPECT_OF_NULLS(kNull, TAV_UnZipExtCfgFileToBuffer, &buffer, &word, text);
    EXPECT_OF_NULLS(kNull, TAV_WriteBufferToFile, bytes, 1, text);
    EXPECT_OF_NULLS(kNull, TAV_ZipBufferToExtCfgFile, bytes, 1, text);
    EXPECT_OF_NULLS(kNull, TAV_WriteFileAtOffset, bytes, 1, text, 0);
    EXPECT_OF_NULLS(0, TAV_CalcExtCfgFileHeadSize, store.get());
    EXPECT_OF_NULLS(0, TAV_CalcExtCfgFileBodySize, store.get());
    EXPECT_OF_NULLS(kNull, TAV_BuildExtCfgFileBody, store.get(), nullptr, 8);
    EXPECT_OF_NULLS(kNull, TAV_CalcChecksum, bytes, 1, bytes, 8);
    EXPECT_OF_NULLS(kNull, TAV_CheckExtCfgFileData, bytes, 1, &context);
    EXPECT_OF_NULLS(kNull, TAV_GetExtCfgFileChecksum, text, bytes, 8);
    EXPECT_OF_NULLS(0, TAV_ExtCfgGetChecksumFromFile, text, bytes, 32);
    EXPECT_OF_NULLS(kNull, TAV_ParseExtCfgVsNode, 0, bytes, 1, &context);
    EXPECT_EQ(TAV_ParseExtCfgRecordNode(13, nullptr, 20, &context), kNull);
    EXPECT_OF_NULLS(kNull, TAV_LoadExtCfgFile, text, &context);
    EXPECT_OF_NULLS(kNull, TAV_GetAbsPath, text, text, 4);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgGetRecord, 0, nullptr, store.get());
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgVsNodeFind, store.get(), 0);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgClassNodeFind, TAV_ExtCfgVsNodeGetInstance(store.get(), 0), 0);
    EXPECT_OF_NULLS(0, TAV_ExtCfgVsNodeCalcSize, TAV_ExtCfgVsNodeFind(store.get(), 0));
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgFieldNodeFind, &record->fields, 14);
    EXPECT_OF_NULLS(0, TAV_ExtCfgRecordMatchCond, record.get(), nullptr);
    EXPECT_OF_NULLS(kNull, TAV_ExtCfgRecordVerify, record.get());
    EXPECT_OF_NULLS(0, TAV_CheckFileSuffix, text, text);
    EXPECT_OF_NULLS(kInvalid, TAV_ReplaceFileSuffix, text, text, text, 4);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgLocalCreate, 0, text, nullptr);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgOpen, 0, text, nullptr);
    EXPECT_OF_NULLS(kNull, TAV_ExtCfgSetRecordToFile, 0, record.get(), text, nullptr);
    EXPECT_OF_NULLS(kNull, TAV_WriteExtCfgFile, text, store.get());
    EXPECT_OF_NULLS(kInvalid, TAV_ExtCfgFlush, store.get());
    EXPECT_OF_NULLS(kNull, TAV_ExtTlvGetValue_UINT32, nullptr, 8, 0, &word);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgOpenAndQuery, 0, record.get(), text, nullptr);
    EXPECT_OF_NULLS(nullptr, TAV_ExtCfgGetNextRecord, store.get());
    EXPECT_OF_NULLS(kInvalid, TAV_ExtCfgEndQuery, store.get());
    EXPECT_OF_NULLS(kInvalid, TAV_ExtCfgClose, store.get());
    EXPECT_OF_NULLS(kNull, TAV_ExtCfgRecordNodeSet, record.get(), record.get());
    EXPECT_OF_NULLS(kNull, TAV_ExtTlvProcForEach, TAV_ParseExtCfgVsNode, bytes, 8, nullptr);
    TAV_ExtCfgLocalFree(nullptr);
    ExpectReport("TAV_ExtCfgLocalFree", 0, true);
    TAV_ExtCfgVsNodeFree(nullptr);
    TAV_ExtCfgClassNodeFree(nullptr);
    TAV_ExtCfgRecordNodeFree(nullptr);
    EXPECT_EQ(buffer, bytes);
}

TEST_F(Nulls, Crypt) {
    const char *history[20] = {};
    EXPECT_OF_NULLS(kMinus1, TAV_VerifySystemPassword, text, text, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_VerifySystemPassword_Enh, text, text, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_VerifyV5SHACipher, text, text, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_CRYPT_VerifyPassword, text, text);
    EXPECT_OF_NULLS(kMinus1, TAV_VerifySHACipher, text, text);
    EXPECT_OF_NULLS(kMinus1, TAV_CRYPT_EncryptPassword, text, text, 4);
    EXPECT_OF_NULLS(kMinus1, TAV_EncryptSystemPassword, text, text, 4);
    EXPECT_OF_NULLS(kMinus1, TAV_CRYPT_EncryptPassword4096, text, 4, text, 4);
    EXPECT_OF_NULLS(kMinus1, TAV_CRYPT_Decrypt, text, text, 4, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_DecryptAndVerify_Enh, text, nullptr, nullptr, nullptr, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_VerifyEncryptSystemPassword_Enh, text, nullptr, &kPassword, nullptr);
    EXPECT_OF_NULLS(kMinus1, TAV_CheckSystemPassword, &kPassword);
    EXPECT_OF_NULLS(0, TAV_GetPasswordType, &kPassword);
    EXPECT_OF_NULLS(0, TAV_CRYPT_IsCipher, text, 4, nullptr, nullptr);
    EXPECT_OF_NULLS(0, TAV_IsStringCipher_EnhExp, text);
    EXPECT_OF_NULLS(0, TAV_IsStringIrreversibleCipher, text);
    EXPECT_OF_NULLS(1, TAV_IsStringV5SHACipher, text, nullptr);
    EXPECT_OF_NULLS(1, TAV_PasswordTooShort, text, 0, 0);
    EXPECT_OF_NULLS(1, TAV_PasswordTooSimple, text, 1, 1, &word);
    EXPECT_OF_NULLS(1, TAV_PasswordAndUsernameSimilarCheck, text, text, 1);
    EXPECT_OF_NULLS(1, TAV_PasswordSameWithHistory, text, 1, 1, history);
    EXPECT_OF_NULLS(kMinus1, TAV_StrValidate, text, 1, 1, 1);
    EXPECT_EQ(TAV_StrValidate("", 0, 0, 0), 0u);
    TAV_ReverseStr(nullptr, 4, text);
    TAV_ReverseStr(text, 4, nullptr);

    EXPECT_OF_NULLS(kMinus1, TAV_LongToDesEnhSys, 1, bytes);
    EXPECT_OF_NULLS(kMinus1, TAV_DesEnhSysToLong, bytes, &word);
    EXPECT_EQ(TAV_BinToAscii(nullptr, 4, bytes, &word), kMinus1);
    EXPECT_EQ(TAV_BinToAscii(text, 4, nullptr, &word), kMinus1);
    EXPECT_EQ(TAV_BinToAscii(text, 4, bytes, nullptr), kMinus1);
    EXPECT_EQ(SYSDT_PwdStringCommonCheck(nullptr), 1u);
    EXPECT_OF_NULLS(kMinus1, TAV_AsciiToBinAndGetLen, bytes, text, 5, &half);
    EXPECT_EQ(TAV_AsciiToBinAndGetLen(bytes, text, 4, &half), kMinus1) << "less than a word";
    EXPECT_EQ(TAV_AsciiToBin(nullptr, 5, text, 4, &half), kMinus1);
    EXPECT_EQ(TAV_AsciiToBin(bytes, 5, nullptr, 4, &half), kMinus1);
    EXPECT_OF_NULLS(kMinus1, TAV_AsciiVisible, bytes, 1, text, 4);
    EXPECT_OF_NULLS(kMinus1, TAV_AsciiUnvisible, text, bytes, &word);
}

TEST_F(Nulls, Common) {
    const TAV_SubIfHandler subIfs = {};
    const TAV_CmdHandler commands = {};
    const TAV_ConstructHandler stages = {};
    const TAV_StateHandler states = {};
    const FSM_Transition table = {};
    EXPECT_OF_NULLS(nullptr, TAV_GetSubIfHandler, 1, 1, &subIfs);
    EXPECT_OF_NULLS(nullptr, TAV_GetMsgHandlerByCmd, 1, &commands);
    EXPECT_OF_NULLS(nullptr, TAV_GetConstructHandlerByStage, 1, &stages);
    EXPECT_OF_NULLS(nullptr, TAV_GetMsgHandleByState, 1, 0, &states, 1);
    EXPECT_OF_NULLS(kMinus1, FSM_Process, 0, &word, &table, 1, 0, 0, 0);
    TAV_FSM_Init(nullptr, 0, nullptr, 0, 0);
    EXPECT_OF_NULLS(0x800000, TAV_FSM_Run, &machine, 1, 0);
    EXPECT_OF_NULLS(0x800000, TAV_FSM_Run_Base, &machine, 1, 0, nullptr);
    const TAV_FSM_Formatter formatter = [](auto, char *, auto) { return 4u; };
    EXPECT_OF_NULLS(0, TAV_FSM_DumpDiagnoseInfo, &machine, formatter, text, 4);
    EXPECT_OF_NULLS(nullptr, TAV_DEBUG_OpenLogFile, text);

    EXPECT_OF_NULLS(kMinus1, TAV_ZipStart, 0, &block, text);
    EXPECT_OF_NULLS(kMinus1, TAV_GetZipBufferSize, &block, 1);
    EXPECT_OF_NULLS(kMinus1, TAV_Zip, &block);
    EXPECT_OF_NULLS(kMinus1, TAV_ZipEnd, &block);
    EXPECT_OF_NULLS(kMinus1, TAV_UnZipStart, &block, text);
    EXPECT_EQ(TAV_UnZip(&block, &word), kMinus1) << "a block without a file";
    EXPECT_OF_NULLS(0, TAV_GetCharFromZip, &block);
    EXPECT_OF_NULLS(kMinus1, TAV_UnZipEnd, &block);
    EXPECT_OF_NULLS(kMinus1, CMF_GetUnZipTmpDir, text, 4);
    EXPECT_OF_NULLS(kMinus1, CMF_GetZipFileNameInZip, text, text);
}

TEST_F(Nulls, ContainersTransfersEvents) {
    TAV_RBT_Init(nullptr, nullptr, nullptr);
    EXPECT_OF_NULLS(-1, VEC_Bzero, text, 4);
    EXPECT_OF_NULLS(-1, VEC_Bcopy, text, 4, text, 4);
    EXPECT_EQ(VEC_VectorCopy_F(0, &vector, nullptr, text, 1), -1);
    EXPECT_OF_NULLS(-1, VEC_VectorEnsure, &vector, 0);
    EXPECT_OF_NULLS(-1, VEC_VectorEmptySlot, &vector);
    EXPECT_OF_NULLS(-1, VEC_VectorSetIndex, &vector, 0, 1);
    EXPECT_OF_NULLS(0, VEC_VectorGetUnset, &vector, 0);
    EXPECT_OF_NULLS(-1, VEC_VectorCount, &vector);

    const NFTPCI_CommHandle handle = {};
    const NFTPCI_ReqParam param = {};
    const void *tlv = nullptr;
    EXPECT_OF_NULLS(nullptr, NFTPCI_CreateReqMsg, &param, &handle);
    EXPECT_OF_NULLS(kMinus1, NFTPCI_GetDataByTlvType, bytes, 1, &tlv);

    EXPECT_EQ(ARU_Detect_RegisterCond_Ex(nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), 2u);
    EXPECT_EQ(ARU_Detect_ProcMsg_Ex(0, nullptr, bytes), 2u);
    EXPECT_EQ(ARU_Detect_Filter_Ex(nullptr, 0, 0), 2u);
    EXPECT_EQ(ARU_Detect_FilterEx(nullptr, 0, 0), 2u);
    EXPECT_EQ(ARU_Detect_FilterEx4CliEvent(nullptr, 0, 0), 2u);
    ARU_Detect_UnInit_Ex(nullptr);
    ARU_Detect_VS_LIST_Free(nullptr);
    ARU_Detect_EnableDebug(nullptr);
    ARU_Detect_DisableDebug(nullptr);
}

}  // namespace
