/*
 * Operations of the store with each of their platform calls failing in turn. Whatever fails: the code, what is reported
 * and the calls of a flush are those written down here, nothing leaks, files and stores hold the old or the new, and
 * the same operation succeeds when it is tried again.
 */
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using std::string;
using Contents = std::map<string, Bytes>;  // what is seen of each thing

// What operations answer beside codes: no object; outputs that should not be there.
constexpr uint32_t kNone = 0xA000, kStray = 0xA001;

const Bytes kBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(5))}), Tlv(13, {Tlv(14, Be32(2))})});
const Bytes kRefer = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(50)), Tlv(15, Be16(9))})}));
constexpr uint32_t kBodySize = 70;
constexpr uint32_t kNoBody = 0;  // of a store that had no memory for the file

uint32_t BodySize(const Store &store) {
    return store ? TAV_CalcExtCfgFileBodySize(store.get()) : kNone;
}

/**
 * What operations work on: a plain file and an archive, the file that one may refer to, records, and a store that was
 * changed and not written. Its name tells what it is to become: that of a(nother), r(eferring) or n(ew) file, or of a
 * file with the s(ame) content, or of a g(one) one.
 */
struct World {
    NothingLeaks nothingLeaks;
    TempFolder folder;
    const string name;
    const string file = Path(name);
    std::optional<Bytes> old;  // the file's bytes
    Store store;
    Record key = Class13(1), wider = MakeRecord(13, {{14, Host32(1)}, {15, Host16(88)}, {12, Text("more")}});
    Record spare[2] = {Class13(50, uint16_t{6}), Class13(50, uint16_t{6})};  // to be given away
    uint8_t out[256] = {};

    string Path(const string &its = {}) const { return folder.Path(its); }
    CfgLocal *Local() const { return store.get(); }
    Store OpenAs(uint32_t mode, const string &its) const {
        return Open(mode, Path(its), its[0] == 'r' ? Path("old.dat") : "");
    }
    Record Take() { return std::move(spare[spare[0] ? 0 : 1]); }

    explicit World(const string &itsName) : name(itsName) {
        WriteFile(Path("old.dat"), kRefer);
        if (name[0] != 'n') {
            const Bytes image = name[0] == 'r' ? Image(kBody, Slice(kRefer, kChecksumAt, kHeadSize)) : Image(kBody);
            const auto write = name.ends_with("zip") ? TAV_ZipBufferToExtCfgFile : TAV_WriteBufferToFile;
            EXPECT_EQ(write(image.data(), static_cast<uint32_t>(image.size()), file.c_str()), TAV_OK);
            old = ReadFile(file);
        }
        store = OpenAs(name[0] == 'g' ? TAV_EXT_MODE_WRITE_ONLY : TAV_EXT_MODE_READ_WRITE, name);
        if (name[0] == 'n') {
            EXPECT_EQ(Add(store, 0, Class13(1, uint16_t{77})), TAV_OK);
        } else if (name[0] != 's' && name[0] != 'g') {
            EXPECT_EQ(TAV_ExtCfgSetRecord(0, Class13(1, uint16_t{77}).get(), Local()), TAV_OK);
        }
    }

    /** What can be seen from outside: the bodies of the store and of the files; none of files that do not load. */
    Contents Look() const {
        Contents all = {{"store", *BodyOf(store)}};
        for (const auto &entry : std::filesystem::directory_iterator(Path())) {
            const string its = entry.path().filename();
            all[its] = BodyOf(OpenAs(TAV_EXT_MODE_READ_ONLY, its)).value_or(Bytes());
        }
        return all;
    }
};

/** What a failure leaves: all as before; a store between old and new; or a file that is old, new or does not load. */
enum Leaves { kWhole, kTornStore, kTornFile };

struct Operation {
    string name;
    uint32_t usual;  // what it answers when nothing fails
    std::function<uint32_t(World &)> run;
    string file = "a.dat";
    Leaves leaves = kWhole;
};

auto CountOpenFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/**
 * What the store reports while calls fail: by function its messages, and the numbers (#) of each. F is a file. Then, by
 * operation, the calls whose failure changes its answer, and these answers; and what calls a flush makes.
 */
constexpr char kReports[] =
    R"(TAV_BuildExtCfgFileBody: Set VS ID TLV failed(vsId=#), return # [0,0x1] | VS0 set record TLV failed, return #
  [0x1]
TAV_BuildExtCfgFileHead: Null pointer, return # [0x801611] | Report error: # [0x1 0x801611 0x801618]
TAV_BuildExtCfgRecordData: Set record field TLV failed(cid=#, fid=#, len=#), return # [1,20,32,0x1 1,3,4,0x1 1,4,12,0x1
  1,5,32,0x1 13,14,4,0x1 13,15,2,0x1]
TAV_CalcChecksum: Report error: # [0x4d]
TAV_CheckExtCfgFileChecksum: Error code #, return # [0x1,0x801613]
TAV_CheckExtCfgFileData: Error code #, return # [0x801613,0x801617 0x801617,0x801617] | First TLV is invalid
TAV_CheckExtCfgFileModifyTime: Error code #, return # [0x1,0x801617]
TAV_CheckExtCfgFileReferChecksum: Error code #, return # [0x1,0x801617 0x801614,0x801617 0x801617,0x801617
  0x801619,0x801617]
TAV_CheckFileSuffix: Suffix len # too large, filename len # [4,0]
TAV_ExtCfgAddRecord: Error code #, return # [0x801617,0x801617 0x801619,0x801619] | Null pointer, return # [0x801611] |
  Report error: # [0x801617]
TAV_ExtCfgClassNodeCreate: Null pointer, return # [0x0]
TAV_ExtCfgClassNodeFind: Class # not found [13]
TAV_ExtCfgClassNodeGetInstance: Null pointer, return # [0x0]
TAV_ExtCfgDelRecord: Null pointer, return # [0x801618]
TAV_ExtCfgFieldNodeCreate: Null pointer, return # [0x0]
TAV_ExtCfgFieldNodeFind: Fid # not found [12 14]
TAV_ExtCfgFlush: Write F failed, return # [0x1 0x4d 0x801611 0x801615 0x801616 0x801618 0x80161b]
TAV_ExtCfgLocalCreate: File Path  | File Path F | Mode #, Filename F [0 1 2] | Null pointer, return # [0x0] | Refer File
  Path  | Refer File Path F
TAV_ExtCfgLocalFree: Filename  | Filename F
TAV_ExtCfgOpen: Load file  failed, return # [0x801616] | Load file F failed, return # [0x1 0x4d 0x801611 0x801614
  0x801616 0x801617] | Null pointer, return # [0x0]
TAV_ExtCfgOpenAndQuery: Null pointer, return # [0x0] | Start query return #, VS # filename F [0x801611,0]
TAV_ExtCfgRecordNodeCreate: Null pointer, return # [0x0]
TAV_ExtCfgRecordNodeSet: Null pointer, return # [0x801611]
TAV_ExtCfgRecordVerify: Null pointer, return # [0x801619] | Record key field not found, cid #, fid # [13,14]
TAV_ExtCfgSetRecord: Report error: # [0x801611 0xffffffff]
TAV_ExtCfgSetRecordToFile: Convert failed, return # [0x1] | Create record node failed | Read F failed, return #
  [0x801611 0x801614 0x801616] | Record not exist | Set F VS # start [0] | Set VS # class # to F return # [0,13,0x0] |
  Update F head failed, size=#, return # [80,0x1 80,0x801611] | Write F failed, offset=#, size=#, return #
  [128,2,0x801615 128,2,0x801616] | Write F head failed, size=#, return # [80,0x801615 80,0x801616]
TAV_ExtCfgStartQuery: Null pointer, return # [0x801611]
TAV_ExtCfgVsNodeCreate: Null pointer, return # [0x0]
TAV_ExtCfgVsNodeFind: VS # not found [0 8]
TAV_ExtCfgVsNodeGetInstance: Null pointer, return # [0x0]
TAV_ExtTlvProcForEach: ExtTlvProcFunc of type(#) failed, return # [13,0x1 13,0x801611 14,0x1 15,0x1 2,0x1 2,0x801611
  20,0x801617 4,0x801617 5,0x801613]
TAV_ExtTlvSet: Convert endian of TLV value failed(type=#, len=#), return # [14,4,0x1 15,2,0x1 20,32,0x1 3,4,0x1 4,12,0x1
  5,32,0x1 6,4,0x1]
TAV_ExtTlvVerify: Invalid TLV body, curTlvLen=#, maxLen=# [80,65]
TAV_FillExtCfgFileHead: Malloc failed, TLV type=#, len=# [20,32 3,4 4,12 5,32] | Proc failed, TLV type=#, len=#, return
  # [20,32,0x1 20,32,0x801618 20,32,0x80161b 3,4,0x1 4,12,0x1 5,32,0x1]
TAV_FillExtCfgFileReferChecksum: Error code #, return # [0x1,0x801618 0x801614,0x801618 0x801617,0x801618] | Null
  pointer, return # [0x80161b]
TAV_GetExtCfgFileChecksum: Null pointer, return # [0x801619] | Read  failed, return # [0x801616] | Read F failed, return
  # [0x1 0x13 0x2 0x4d 0x801611 0x801614 0x801616]
TAV_LoadExtCfgFile: Load  end | Load  start | Load F end | Load F start | Read  failed, return # [0x801616] | Read F
  failed, return # [0x1 0x4d 0x801611 0x801614 0x801616] | TAV_ParseExtCfgFile failed, return # [0x1 0x801611 0x801617]
TAV_ParseExtCfgFieldNode: Convert endian failed, TLV type=#, return # [14,0x1 15,0x1]
TAV_ParseExtCfgFileData: File data is invalid | Report error: # [0x1 0x801611]
TAV_ParseExtCfgRecordNode: Get class instance failed, cid=# [13] | Null pointer, return # [0x801611] | Parse record
  failed, cid=#, return # [13,0x1]
TAV_ParseExtCfgVsNode: Null pointer, return # [0x801611] | Report error: # [0x1 0x801611]
TAV_ReadFileToBuffer: Get  size failed, return # [0x2] | Get F size failed, return # [0x2 0x4d] | Null pointer, return #
  [0x801611] | Open F failed | Read F failed, len=#, return # [130,0x41 150,0x4b 190,0x5f]
TAV_UnZipExtCfgFileToBuffer: Get F size failed, return # [0x2 0x4d] | Get file num of F failed, return # [0x13 0x4d] |
  GetUncompressSize of F failed, return # [0x4d] | Null pointer, return # [0x801611] | Replace suffix of F failed,
  return # [0x1] | uncompressed size # in F failed, return # [150,0x4d]
TAV_WriteBufferToFile: Open F failed | Write F failed, len=#, return # [130,0x41 150,0x4b 190,0x5f]
TAV_WriteExtCfgFile: Build F body failed, body size=#, return # [50,0x1 70,0x1] | Build F head failed, head size=#,
  return # [120,0x1 120,0x801611 120,0x801618 80,0x1 80,0x801611] | Checksum is the same, no need write file | Null
  pointer, return # [0x801611] | Write F failed, len=#, return # [130,0x1 130,0x4d 130,0x801615 130,0x801616 150,0x1
  150,0x4d 150,0x801615 150,0x801616 190,0x801615 190,0x801616]
TAV_WriteFileAtOffset: Open F failed | Report error: # [0xffffffff] | Write F failed, len=#, return # [2,0x1
  2,0xffffffff 80,0x28 80,0xffffffff]
TAV_ZipBufferToExtCfgFile: Replace suffix of F failed, return # [0x1] | Zip to F failed, len=#, return # [130,0x4d
  150,0x4d]
add to a new VS: MEL_Malloc_F [801611]
build and add: MEL_Malloc_F [801617 801619] | memcpy_s [801617]
calls to flush a.dat: Digest 70 33, Stat a.dat, FOpen a.dat rb, FRead 150, FClose, Digest 70 33, IsFileExist a.dat,
  MoveFile a.dat a.dat.bak, FOpen a.dat wb+, Chown2MEL a.dat 0, FWrite 150, FFlush, FClose, SetFileModeEx a.dat 416,
  IsFileExist a.dat.bak, DeleteFile a.dat.bak
calls to flush a.zip: Digest 70 33, Stat a.zip, UnzipGetNumofFiles a.zip, GetUncompressSize a.zip.dat a.zip,
  UnzipToBuffer 150 a.zip.dat a.zip, Digest 70 33, IsFileExist a.zip, MoveFile a.zip a.zip.bak, ZipBuffer 150 a.zip.dat
  a.zip 0 6, IsFileExist a.zip.bak, DeleteFile a.zip.bak
calls to flush gone.dat: IsFileExist gone.dat, DeleteFile gone.dat
calls to flush new.dat: Digest 50 33, Stat new.dat, IsFileExist new.dat, FOpen new.dat wb+, Chown2MEL new.dat 0, FWrite
  130, FFlush, FClose, SetFileModeEx new.dat 416, IsFileExist new.dat.bak
calls to flush new.zip: Digest 50 33, Stat new.zip, IsFileExist new.zip, ZipBuffer 130 new.zip.dat new.zip 0 6,
  IsFileExist new.zip.bak
calls to flush refers.dat: Digest 70 33, Stat old.dat, FOpen old.dat rb, FRead 130, FClose, Digest 50 33, Stat
  refers.dat, FOpen refers.dat rb, FRead 190, FClose, Digest 70 33, IsFileExist refers.dat, MoveFile refers.dat
  refers.dat.bak, FOpen refers.dat wb+, Chown2MEL refers.dat 0, FWrite 190, FFlush, FClose, SetFileModeEx refers.dat
  416, IsFileExist refers.dat.bak, DeleteFile refers.dat.bak
calls to flush same.dat: Digest 70 33, Stat same.dat, FOpen same.dat rb, FRead 150, FClose, Digest 70 33
calls to flush same.zip: Digest 70 33, Stat same.zip, UnzipGetNumofFiles same.zip, GetUncompressSize same.zip.dat
  same.zip, UnzipToBuffer 150 same.zip.dat same.zip, Digest 70 33
checksum: BEX_Crypt_Digest [801617] | BEX_VFS_FOpen [801614] | BEX_VFS_FRead [801614] | BEX_VFS_Stat [801614] |
  MEL_Malloc_F [801614] | memcpy_s [1 801617]
flush a.dat: BEX_Crypt_Digest [1] | BEX_VFS_FOpen [801616] | BEX_VFS_FWrite [801615] | MEL_Malloc_F [801611] | memcpy_s
  [1]
flush a.zip: BEX_Crypt_Digest [1] | BEX_ZipBuffer [4d] | MEL_Malloc_F [801611] | memcpy_s [1] | sprintf_s [1]
flush new.dat: BEX_Crypt_Digest [1] | BEX_VFS_FOpen [801616] | BEX_VFS_FWrite [801615] | MEL_Malloc_F [801611] |
  memcpy_s [1]
flush new.zip: BEX_Crypt_Digest [1] | BEX_ZipBuffer [4d] | MEL_Malloc_F [801611] | memcpy_s [1] | sprintf_s [1]
flush refers.dat: BEX_Crypt_Digest [1 801618] | BEX_VFS_FOpen [801616 801618] | BEX_VFS_FRead [801618] | BEX_VFS_FWrite
  [801615] | BEX_VFS_Stat [801618] | MEL_Malloc_F [801611 801618] | memcpy_s [1 801618]
flush same.dat: BEX_Crypt_Digest [0 1] | BEX_VFS_FOpen [0] | BEX_VFS_FRead [0] | BEX_VFS_Stat [0] | MEL_Malloc_F [0
  801611] | memcpy_s [0 1]
flush same.zip: BEX_Crypt_Digest [0 1] | BEX_UnzipGetNumofFiles [0] | BEX_UnzipToBuffer [0] | BEX_VFS_Stat [0] |
  MEL_Malloc_F [0 801611] | ZIP_GetUncompressSize [0] | memcpy_s [0 1] | sprintf_s [0]
get a field: memcpy_s [1]
open and query: BEX_Crypt_Digest [a000] | BEX_UnzipGetNumofFiles [a000] | BEX_UnzipToBuffer [a000] | BEX_VFS_Stat [a000]
  | MEL_Malloc_F [a000] | ZIP_GetUncompressSize [a000] | memcpy_s [a000] | sprintf_s [a000] | strncpy_s [a000]
open read-only refers.dat: BEX_Crypt_Digest [a000] | BEX_VFS_FOpen [a000] | BEX_VFS_FRead [a000] | BEX_VFS_Stat [a000] |
  MEL_Malloc_F [a000] | memcpy_s [a000] | strncpy_s [a000]
open read-only same.zip: BEX_Crypt_Digest [a000] | BEX_UnzipGetNumofFiles [a000] | BEX_UnzipToBuffer [a000] |
  BEX_VFS_Stat [a000] | MEL_Malloc_F [a000] | ZIP_GetUncompressSize [a000] | memcpy_s [a000] | sprintf_s [a000] |
  strncpy_s [a000]
open read-write refers.dat: BEX_Crypt_Digest [0] | BEX_VFS_FOpen [0] | BEX_VFS_FRead [0] | BEX_VFS_Stat [0] |
  MEL_Malloc_F [0 a000] | memcpy_s [0 a000] | strncpy_s [0]
open read-write same.zip: BEX_Crypt_Digest [0] | BEX_UnzipGetNumofFiles [0] | BEX_UnzipToBuffer [0] | BEX_VFS_Stat [0] |
  MEL_Malloc_F [0 a000] | ZIP_GetUncompressSize [0] | memcpy_s [0 a000] | sprintf_s [0] | strncpy_s [0]
open write-only refers.dat: MEL_Malloc_F [a000]
open write-only same.zip: MEL_Malloc_F [a000]
path: MEL_GetProcessCurrentPath [1]
query: MEL_Malloc_F [801611]
read: BEX_VFS_FOpen [801616] | BEX_VFS_FRead [801614] | BEX_VFS_Stat [801616] | MEL_Malloc_F [801611]
set: MEL_Malloc_F [801611] | memcpy_s [ffffffff]
set in place: BEX_Crypt_Digest [1 801618] | BEX_VFS_FOpen [801614 801616] | BEX_VFS_FRead [801614] | BEX_VFS_FSeek
  [801615] | BEX_VFS_FWrite [801615] | BEX_VFS_Stat [801614] | MEL_Malloc_F [801611 801614 801618] | memcpy_s [1 801618]
  | strncpy_s [801614]
stated checksum: BEX_VFS_FOpen [0] | BEX_VFS_FRead [0] | BEX_VFS_Stat [0] | MEL_Malloc_F [0] | memcpy_s [0]
unzip: BEX_UnzipGetNumofFiles [4d] | BEX_UnzipToBuffer [801616] | BEX_VFS_Stat [4d] | MEL_Malloc_F [801611] |
  ZIP_GetUncompressSize [4d] | sprintf_s [1])";

using Reports = std::map<string, std::map<string, std::set<string>>>;  // function, message, numbers
Reports g_reports;

/** Replaces the numbers of a text, which do not stand within words, by #. Returns them, with commas between. */
string TakeNumbers(string *text) {
    string numbers;
    for (size_t at = 0; (at = text->find_first_of("0123456789", at)) != string::npos; ++at) {
        if (at == 0 || isalnum((*text)[at - 1]) == 0) {
            const bool isHex = text->compare(at, 2, "0x") == 0;
            const size_t end = text->find_first_not_of(isHex ? "0123456789abcdefx" : "0123456789", at);
            numbers += (numbers.empty() ? "" : ",") + text->substr(at, end - at);
            text->replace(at, end - at, "#");
        }
    }
    return numbers;
}

/** Notes what has been reported in a world. */
void NoteReports(const World &world) {
    const string folder = world.Path() + "/";
    for (const LogEntry &entry : DebugLog::Take()) {
        string text = entry.message;
        for (size_t at = 0; (at = text.find(folder)) != string::npos;) {
            text.replace(at, text.find('.', at + folder.size()) + 4 - at, "F");
        }
        const string numbers = TakeNumbers(&text);
        g_reports[entry.function][text].insert(numbers);
    }
}

/** What is expected to be reported: kReports with its broken lines whole. */
string ExpectedReports() {
    string text = kReports;
    for (size_t at = 0; (at = text.find("\n  ", at)) != string::npos;) {
        text.replace(at, 3, " ");
    }
    return text + "\n";
}

/** The notes as they are written in kReports, but for its line breaks. */
string WrittenReports() {
    std::ostringstream out;
    for (const auto &[function, messages] : g_reports) {
        const char *mark = ": ";
        for (const auto &[message, numbers] : messages) {
            out << (mark[0] == ':' ? function : "") << std::exchange(mark, " | ") << message;
            for (const char *before = " ["; const string &each : numbers) {
                out << (each.empty() ? "" : std::exchange(before, " ")) << each;
            }
            out << (numbers.begin()->empty() ? "" : "]");
        }
        out << "\n";
    }
    return out.str();
}

/** Runs an operation once with a platform call failing, or none, and expects that its files are closed. */
uint32_t RunOnce(const Operation &operation, World &world, uint32_t failing = 0) {
    const auto filesBefore = CountOpenFiles();
    interposer::Reset();
    interposer::FailNth(interposer::Call::kAny, failing);
    DebugLog::Take();
    const uint32_t code = operation.run(world);
    interposer::FailNth(interposer::Call::kAny, 0);
    NoteReports(world);
    EXPECT_EQ(CountOpenFiles(), filesBefore);
    return code;
}

/** How an operation goes when nothing fails. */
struct Usual {
    Contents after;
    uint32_t again;  // what it answers the second time
};

/** What is left once an operation is done, whatever became of the backup. */
Contents WithoutBackups(Contents seen) {
    std::erase_if(seen, [](const auto &entry) { return entry.first.ends_with(".bak"); });
    return seen;
}

/** Tries an operation again of which a call has failed. */
void ExpectRetry(const Operation &operation, World &world, bool wasDone, const Usual &usual) {
    const uint32_t retried = RunOnce(operation, world);
    if (retried == operation.usual) {
        EXPECT_EQ(wasDone ? WithoutBackups(world.Look()) : world.Look(), usual.after) << "after the retry";
    } else {
        EXPECT_TRUE(wasDone) << "the retry fails with " << std::hex << retried;
        EXPECT_EQ(retried, usual.again);
    }
}

/** Expects that what is seen after a failure is the one or the other, as far as the operation says. */
void ExpectWhole(const Operation &operation, Contents seen, Contents one, Contents other) {
    for (const string &file : {operation.leaves == kTornFile ? operation.file : "", string("old.dat")}) {
        if (operation.leaves == kTornFile && (seen[file].empty() || seen[file] == other[file])) {
            one[file] = seen[file];
        }
    }
    if (operation.leaves != kTornStore) {
        EXPECT_EQ(seen, one);
    }
}

/** Fails one platform call of an operation. Returns the call's name; nothing when there are not so many. */
string FailOne(const Operation &operation, uint32_t nth, const Usual &usual) {
    World world(operation.file);
    const Contents before = world.Look();
    const uint32_t code = RunOnce(operation, world, nth);
    const string failed = interposer::Failed();
    SCOPED_TRACE(operation.name + ", call " + std::to_string(nth) + " fails: " + failed);
    const bool isUsual = code == operation.usual, isDone = isUsual || code == TAV_OK;
    if (!isUsual) {
        std::ostringstream shown;
        shown << std::hex << code;
        g_reports[operation.name][failed].insert(shown.str());
        EXPECT_NE(failed, "") << "another code, and nothing has failed";
    }
    isDone ? ExpectWhole(operation, WithoutBackups(world.Look()), usual.after, before)
           : ExpectWhole(operation, world.Look(), before, usual.after);
    ExpectRetry(operation, world, isDone, usual);
    return failed;
}

/** Reads a file or an archive; a failure must leave neither a block nor a size. */
uint32_t ReadWhole(uint32_t (*reader)(uint8_t **, uint32_t *, const char *), const World &world) {
    auto *buffer = reinterpret_cast<uint8_t *>(1);
    uint32_t size = 7;
    const uint32_t code = reader(&buffer, &size, world.file.c_str());
    const Block block(code == 0 ? buffer : nullptr);
    return code != 0 && (buffer != nullptr || size != 0) ? kStray : code;
}

uint32_t SetInPlace(World &world) {
    WriteFile(world.Path("old.dat"), kRefer);  // a failure before may have torn it
    return TAV_ExtCfgSetRecordToFile(0, world.Take().get(), world.Path("old.dat").c_str(), nullptr);
}

uint32_t OpenAndQuery(const World &world) {
    return BodySize(Store(TAV_ExtCfgOpenAndQuery(0, world.key.get(), world.file.c_str(), nullptr)));
}

uint32_t GetField(World &world) {
    return TAV_ExtCfgRecordGetFieldValue(world.key.get(), 14, 4, world.out, nullptr);
}

uint32_t Flush(const World &world) {
    return TAV_ExtCfgFlush(world.Local());
}

std::vector<Operation> Flushes() {
    std::vector<Operation> all;
    for (const string file :
         {"a.dat", "a.zip", "refers.dat", "new.dat", "new.zip", "same.dat", "same.zip", "gone.dat"}) {
        const Leaves leaves = file[0] == 'n' || file[0] == 'g' ? kTornFile : kWhole;
        all.push_back({"flush " + file, file[0] == 's' ? TAV_ERR_UNCHANGED : TAV_OK, Flush, file, leaves});
    }
    return all;
}

std::vector<Operation> Operations() {
    std::vector<Operation> all = Flushes();
    const auto text = [](World &w) { return reinterpret_cast<char *>(w.out); };
    const std::vector<Operation> others = {
        {"query", 0, [](World &w) { return TAV_ExtCfgStartQuery(0, w.key.get(), w.Local()); }},
        {"get", 1, [](World &w) { return TAV_ExtCfgGetRecord(0, w.key.get(), w.Local()) != nullptr; }},
        {"get a field", 0, GetField},
        {"add", 0, [](World &w) { return Add(w.store, 0, w.Take()); }},
        {"delete", 0, [](World &w) { return TAV_ExtCfgDelRecord(0, w.key.get(), w.Local()); }},
        {"checksum", 0, [](World &w) { return TAV_GetExtCfgFileChecksum(w.file.c_str(), w.out, 32); }},
        {"stated checksum", 32, [](World &w) { return TAV_ExtCfgGetChecksumFromFile(w.file.c_str(), w.out, 32); }},
        {"path", 0, [=](World &w) { return TAV_GetAbsPath("a", text(w), 256); }},
        {"read", 0, [](World &w) { return ReadWhole(TAV_ReadFileToBuffer, w); }},
        {"unzip", 0, [](World &w) { return ReadWhole(TAV_UnZipExtCfgFileToBuffer, w); }, "a.zip"},
        {"add to a new VS", 0, [](World &w) { return Add(w.store, 8, w.Take()); }, "a.dat", kTornStore},
        {"build and add", 0, [](World &w) { return Add(w.store, 0, Class13(9, 4)); }, "a.dat", kTornStore},
        {"set", 0, [](World &w) { return TAV_ExtCfgSetRecord(0, w.wider.get(), w.Local()); }, "a.dat", kTornStore},
        {"set in place", 0, SetInPlace, "a.dat", kTornFile}};
    all.insert(all.end(), others.begin(), others.end());
    for (const string file : {"same.zip", "refers.dat"}) {
        const auto open = [=](uint32_t mode) { return [=](World &w) { return BodySize(w.OpenAs(mode, file)); }; };
        all.push_back({"open read-only " + file, kBodySize, open(TAV_EXT_MODE_READ_ONLY), file});
        all.push_back({"open read-write " + file, kBodySize, open(TAV_EXT_MODE_READ_WRITE), file});
        all.push_back({"open write-only " + file, kNoBody, open(TAV_EXT_MODE_WRITE_ONLY), file});
    }
    all.push_back({"open and query", kBodySize, OpenAndQuery, "same.zip"});
    return all;
}

/** Notes the platform calls that an operation has made. */
void NoteCalls(const Operation &operation) {
    string calls;
    for (const string &call : interposer::Listed()) {
        calls += (calls.empty() ? "" : ", ") + call;
    }
    g_reports["calls to " + operation.name][calls].insert("");
}

TEST(Sweep, EveryOperationAndEveryCall) {
    setenv("TMPDIR", "/dev/shm", 1);  // no failure here is the disk's, so nobody need wait for it
    const DebugLog log;
    std::set<string> functions;
    uint32_t points = 0;
    const std::vector<Operation> operations = Operations();
    for (const Operation &operation : operations) {
        SCOPED_TRACE(operation.name);
        World clean(operation.file);
        uint32_t nth = 0;
        EXPECT_EQ(RunOnce(operation, clean), operation.usual);
        if (operation.name.starts_with("flush")) {
            NoteCalls(operation);
        }
        Usual usual = {.after = clean.Look(), .again = 0};
        usual.again = RunOnce(operation, clean);
        for (string failed; !(failed = FailOne(operation, ++nth, usual)).empty(); ++points) {
            functions.insert(failed);
        }
    }
    EXPECT_EQ(WrittenReports(), ExpectedReports());
    std::cout << operations.size() << " operations, " << points << " calls that failed, of " << functions.size()
              << " functions\n";
}

/** On the way back from a failure another call fails: the old file lies under its name or its backup's, as it was. */
TEST(Sweep, TwoCallsOfAFlush) {
    constexpr size_t kMostCalls = 30;
    for (const Operation &operation : Flushes()) {
        World clean(operation.file);
        RunOnce(operation, clean);
        Usual usual = {.after = clean.Look(), .again = RunOnce(operation, clean)};
        for (size_t at = 0, calls = 0; at < kMostCalls * kMostCalls; ++at) {
            const size_t first = at / kMostCalls, second = first + at % kMostCalls;  // the same: it fails alone
            SCOPED_TRACE(operation.name + " " + std::to_string(first) + " " + std::to_string(second));
            World world(operation.file);
            interposer::Reset();
            interposer::FailListed({first, second});
            const uint32_t code = Flush(world);
            const bool isDone = code == TAV_OK || code == TAV_ERR_UNCHANGED;
            calls = first != second ? calls : isDone ? 0 : interposer::Listed().size();
            interposer::Reset();
            if (second >= calls) {  // or the first call matters little, so that nothing is taken back
                at += kMostCalls - at % kMostCalls - 1;
                continue;
            }
            const auto isOld = [&](const string &path) { return FileExists(path) && ReadFile(path) == world.old; };
            EXPECT_TRUE(!world.old || isOld(world.file) || isOld(world.file + ".bak"));
            ExpectRetry(operation, world, true, usual);
        }
    }
}

TEST(Sweep, EveryShortWriteOfAFlush) {
    for (uint32_t missing = 1; missing <= 150; ++missing) {
        World world("a.dat");
        interposer::FailNth(interposer::Call::kWrite, 1);
        interposer::SetMissingBytes(missing);
        EXPECT_EQ(Flush(world), TAV_ERR_REFUSED) << missing;
        interposer::Reset();
        EXPECT_EQ(ReadFile(world.file), world.old) << missing;
        EXPECT_EQ(Flush(world), TAV_OK);
        EXPECT_EQ(std::filesystem::status(world.file).permissions(), std::filesystem::perms{0640});
    }
}

}  // namespace
