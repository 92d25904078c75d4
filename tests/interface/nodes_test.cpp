/*
 * The nodes of a store, walked from C: tav_extcfg_nodes.h against the library.
 */
#include "store.h"

/** Writes a line for each virtual system, class, record and field; a field's value in hexadecimal, in host order. */
extern "C" void PrintNodes(FILE *out, const CfgLocal *local);

namespace {

/** What the walk prints of a store. */
std::string PrintedNodes(const Store &store) {
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    PrintNodes(out, store.get());
    fclose(out);
    const std::unique_ptr<char, decltype(&free)> owner(text, free);
    return {text, size};
}

TEST(Nodes, WalkedFromC) {
    const TempFolder folder;
    const std::string path = folder.Path("store.dat");
    // Records come in the order of their keys, everything else in the order of first use.
    WriteFile(path, Image(Join({VsTlv(8, {Tlv(13, {Tlv(14, Be32(0x02020202)), Tlv(12, Text("one"))}),  //
                                          Tlv(13, {Tlv(14, Be32(0x01010101)), Tlv(12, Text(""))}),     //
                                          Tlv(1, {Tlv(8, Text("name"))})}),
                                VsTlv(3, {})})));
    const Store store = Open(TAV_EXT_MODE_READ_WRITE, path);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(Add(store, 9, Class13(0x03030303)), TAV_OK);
    EXPECT_EQ(PrintedNodes(store), R"(VS 8
class 13
record of class 13
field 14: 01010101
field 12: 
record of class 13
field 14: 02020202
field 12: 6f6e65
class 1
record of class 1
field 8: 6e616d65
VS 3
VS 9
class 13
record of class 13
field 14: 03030303
)");
    EXPECT_EQ(PrintedNodes(Open(TAV_EXT_MODE_WRITE_ONLY, folder.Path("none.dat"))), "");
}

}  // namespace
