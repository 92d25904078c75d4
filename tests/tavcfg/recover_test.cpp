/*
 * recover: every state that a crash, and more than a crash, can leave.
 */
#include "tool.h"

class RecoverTest : public ToolTest {
  protected:
    static Bytes Dated(const Bytes &body, uint32_t day) {
        Bytes image = Image(body);
        const Bytes time = Join({Be16(2024), {5, static_cast<uint8_t>(day), 0, 0, 0}, {0}, Be32(0)});
        std::copy(time.begin(), time.end(), image.begin() + kTimeAt);
        return image;
    }

    /** Puts FILE and its backup, each missing when empty. */
    void Given(const Bytes &file, const Bytes &backup) {
        Clean();
        if (!file.empty()) {
            Put("x.dat", file);
        }
        if (!backup.empty()) {
            Put("x.dat.bak", backup);
        }
    }

    /** Expects the files' contents, each missing when empty. */
    void Expect(const Bytes &file, const Bytes &backup, const Bytes &broken = {}) {
        const auto content = [this](const char *name) { return Has(name) ? Content(name) : Bytes{}; };
        EXPECT_EQ(content("x.dat"), file);
        EXPECT_EQ(content("x.dat.bak"), backup);
        EXPECT_EQ(content("x.dat.broken"), broken);
    }

    void Clean() {
        for (const char *name : {"x.dat", "x.dat.bak", "x.dat.broken", "x.dat.bak.broken"}) {
            std::remove(Path(name).c_str());
        }
    }

    const Bytes none_ = {};
    const Bytes old_ = Dated(SmallBody(), 1);
    const Bytes new_ = Dated(VsTlv(0, {Rec13(1, 1)}), 2);
    const Bytes bad_ = Slice(new_, 0, new_.size() - 1);
};

TEST_F(RecoverTest, KeepsTheNewestThatLoads) {
    Given(new_, none_);
    EXPECT_EQ(Out("recover x.dat"), "nothing to recover: x.dat loads, and there is no backup\n");
    Expect(new_, none_);

    Given(none_, old_);  // a crash after the backup
    EXPECT_EQ(Out("recover x.dat"), "recovered x.dat from x.dat.bak: it was missing\n");
    Expect(old_, none_);

    Given(bad_, old_);  // within the write
    EXPECT_EQ(Out("recover x.dat"), "recovered x.dat from x.dat.bak: it does not load and was moved to x.dat.broken\n");
    Expect(old_, none_, bad_);

    Given(new_, old_);  // after the write
    EXPECT_EQ(Out("recover x.dat"), "kept x.dat, deleted x.dat.bak: both load, the backup is not newer\n");
    Expect(new_, none_);

    Given(old_, new_);  // no crash leaves this, but somebody may
    EXPECT_EQ(Out("recover x.dat"), "recovered x.dat from x.dat.bak: both load, the backup is newer\n");
    Expect(new_, none_);

    Given(new_, bad_);
    EXPECT_EQ(Out("recover x.dat"), "kept x.dat; the backup does not load and was moved to x.dat.bak.broken\n");
    Expect(new_, none_);
    EXPECT_EQ(Content("x.dat.bak.broken"), bad_);
}

TEST_F(RecoverTest, TouchesNothingWithoutAGoodCopy) {
    const std::pair<Bytes, Bytes> states[] = {{none_, none_}, {bad_, none_}, {none_, bad_}, {bad_, bad_}};
    for (const auto &[file, backup] : states) {
        Given(file, backup);
        Refused(1, "cannot recover x.dat: ", "recover x.dat");
        Expect(file, backup);
    }
}

TEST_F(RecoverTest, ABrokenFileNeverReplacesAnEarlierOne) {
    Given(bad_, old_);
    Put("x.dat.broken", std::string("earlier"));
    Out("recover x.dat");
    Expect(old_, none_, Text("earlier"));
    EXPECT_EQ(Content("x.dat.broken.1"), bad_);
}

// The backup of an archive still holds the archive's own member.
TEST_F(RecoverTest, Archives) {
    Put("x.dat", old_);
    Out("convert x.dat x.zip");
    const Bytes archive = Content("x.zip");
    Put("x.zip.bak", archive);
    Put("x.zip", Slice(archive, 0, archive.size() / 2));
    Out("recover x.zip");
    EXPECT_EQ(Content("x.zip"), archive);
    EXPECT_FALSE(Has("x.zip.bak"));
    EXPECT_TRUE(Has("x.zip.broken"));
    Out("verify x.zip");
}
