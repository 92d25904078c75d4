/*
 * Runs the tool in a folder of its own.
 */
#ifndef TAV_TESTS_TAVCFG_TOOL_H
#define TAV_TESTS_TAVCFG_TOOL_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "bytes.h"

/** What a run of the tool gave. */
struct Result {
    int code;
    std::string out, error;
};

/** The bytes with some bits of one of them turned over. */
inline Bytes Damaged(Bytes bytes, size_t offset) {
    bytes.at(offset) ^= 0x15;
    return bytes;
}

/** A class 13 record TLV with key field 14, and a 16-bit field 15. */
inline Bytes Rec13(uint32_t key, uint32_t value) {
    return Tlv(13, {Tlv(14, Be32(key)), Tlv(15, Be16(value))});
}

/** A small file: VS 0 with records 5 and 7 of class 13 and one of class 7, and an empty VS 3. */
inline Bytes SmallBody() {
    return Join({VsTlv(0, {Rec13(5, 1), Rec13(7, 2), Tlv(7, {Tlv(8, Text("ssh")), Tlv(9, Be16(22))})}), VsTlv(3, {})});
}
inline Bytes SmallImage() {
    return Image(SmallBody());
}

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** Runs the tool in a folder that holds the small file as x.dat. */
class ToolTest : public testing::Test {
  protected:
    void SetUp() override { Put("x.dat", SmallImage()); }

    /**
     * Runs "tavcfg ARGUMENTS" through the shell, redirections and all. Whatever it gives, a failure must say so in just
     * one line, and anything else nothing on standard error.
     */
    Result Run(const std::string &arguments);

    /** Runs the tool and returns what it printed; the test fails unless it did its work. */
    std::string Out(const std::string &arguments);

    /** Runs the tool and expects this exit code, this text in its line of complaint, and every file as it was. */
    void Refused(int code, const std::string &why, const std::string &arguments);

    std::string Path(const std::string &name) const { return folder_.Path(name); }
    bool Has(const std::string &name) const { return FileExists(Path(name)); }
    void Put(const std::string &name, const Bytes &content) const { WriteFile(Path(name), content); }
    void Put(const std::string &name, const std::string &content) const { Put(name, Text(content)); }

    /** The content of a file; of one that is missing, nothing. */
    Bytes Content(const std::string &name) const { return Has(name) ? ReadFile(Path(name)) : Bytes{}; }

    TempFolder folder_;
};

#endif
