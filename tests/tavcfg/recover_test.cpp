/*
 * recover: every state that a crash, and more than a crash, can leave.
 */
#include "tool.h"

using RecoverTest = ToolTest;

namespace {

Bytes Dated(const Bytes &body, uint8_t day) {
    Bytes image = Image(body);
    const Bytes time = Join({Be16(2024), {5, day, 0, 0, 0, 0}, Be32(0)});
    std::copy(time.begin(), time.end(), image.begin() + kTimeAt);
    return image;
}

const Bytes kNone = {};
const Bytes kOld = Dated(SmallBody(), 1);
const Bytes kNew = Dated(VsTlv(0, {Rec13(1, 1)}), 2);
const Bytes kBad = Slice(kNew, 0, kNew.size() - 1);

}  // namespace

TEST_F(RecoverTest, KeepsTheNewestThatLoads) {
    const struct {
        Bytes file, backup;  // as found; none for a file that is missing
        std::string says;    // none for a refusal
        Bytes kept;
        Bytes broken = {}, brokenBackup = {};  // what was put aside
    } states[] = {
        {kNew, kNone, "nothing to recover: x.dat loads, and there is no backup\n", kNew},
        // A crash after the backup, within the write, and after it.
        {kNone, kOld, "recovered x.dat from x.dat.bak: it was missing\n", kOld},
        {kBad, kOld, "recovered x.dat from x.dat.bak: it does not load and was moved to x.dat.broken\n", kOld, kBad},
        {kNew, kOld, "kept x.dat, deleted x.dat.bak: both load, the backup is not newer\n", kNew},
        // No crash leaves these, but somebody may.
        {kOld, kNew, "recovered x.dat from x.dat.bak: both load, the backup is newer\n", kNew},
        {kNew, kBad, "kept x.dat; the backup does not load and was moved to x.dat.bak.broken\n", kNew, kNone, kBad},
        {kNone, kNone, "", kNone},
        {kBad, kNone, "", kNone},
        {kNone, kBad, "", kNone},
        {kBad, kBad, "", kNone},
    };
    for (const auto &state : states) {
        for (const char *name : {"x.dat", "x.dat.bak", "x.dat.broken", "x.dat.bak.broken"}) {
            std::remove(Path(name).c_str());
        }
        for (const auto &[name, content] : {std::pair("x.dat", state.file), {"x.dat.bak", state.backup}}) {
            if (!content.empty()) {
                Put(name, content);
            }
        }
        if (state.says.empty()) {
            Refused(1, "cannot recover x.dat: ", "recover x.dat");
            continue;
        }
        EXPECT_EQ(Out("recover x.dat"), state.says);
        EXPECT_EQ(Content("x.dat"), state.kept) << state.says;
        EXPECT_FALSE(Has("x.dat.bak")) << state.says;
        EXPECT_EQ(Content("x.dat.broken"), state.broken) << state.says;
        EXPECT_EQ(Content("x.dat.bak.broken"), state.brokenBackup) << state.says;
    }
}

// The backup of an archive still holds the archive's own member; and what was put aside earlier stays.
TEST_F(RecoverTest, Archives) {
    Out("convert x.dat x.zip");
    const Bytes archive = Content("x.zip"), half = Slice(archive, 0, archive.size() / 2);
    Put("x.zip.bak", archive);
    Put("x.zip", half);
    Put("x.zip.broken", "earlier");
    Out("recover x.zip");
    EXPECT_EQ(Content("x.zip"), archive);
    EXPECT_FALSE(Has("x.zip.bak"));
    EXPECT_EQ(Content("x.zip.broken"), Text("earlier"));
    EXPECT_EQ(Content("x.zip.broken.1"), half);
    Out("verify x.zip");
}
