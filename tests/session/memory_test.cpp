/*
 * The C interface of sessions while memory is short: each allocation fails in turn, of C++ and of the platform. No
 * exception may come out; the call says so, changes nothing, and works when it is made again.
 */
#include <dlfcn.h>

#include <cstdlib>
#include <iostream>
#include <new>

#include "file.h"
#include "platform/mel_memory.h"
#include "tav_changes.h"
#include "tav_posix.h"
#include "tav_session.h"

namespace {

/** Which allocation fails. */
struct Shortage {
    size_t turn = 0;      // counted down to it; 0 for none
    bool isLast = false;  // so do all that follow
    bool wasHit = false;
} g_shortage;

bool Fails() {
    if (g_shortage.turn != 1) {
        g_shortage.turn -= g_shortage.turn != 0 ? 1 : 0;
        return false;
    }
    g_shortage.turn = g_shortage.isLast ? 1 : 0;
    g_shortage.wasHit = true;
    return true;
}

void *Take(size_t size) {
    void *const block = Fails() ? nullptr : malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

}  // namespace

void *operator new(size_t size) {
    return Take(size);
}
void *operator new[](size_t size) {
    return Take(size);
}
void operator delete(void *block) noexcept {
    free(block);
}
void operator delete[](void *block) noexcept {
    free(block);
}
void operator delete(void *block, size_t) noexcept {
    free(block);
}
void operator delete[](void *block, size_t) noexcept {
    free(block);
}

extern "C" void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line) {
    static const auto next = reinterpret_cast<decltype(&MEL_Malloc_F)>(dlsym(RTLD_NEXT, "MEL_Malloc_F"));
    return Fails() ? nullptr : next(handle, memPt, size, source, line);
}

namespace {

constexpr char kNames[] = R"({"13": {"name": "row", "fields": {"14": "key", "12": "text"}}})";
constexpr char kBroken[] = R"({"vs":[{"id":0,"records":[{"class":13,"fields":[[14,5],[15,)";
constexpr char kTree[] = R"({"vs":[{"records":[{"fields":[[14,7],[12,"a rather long value"]],"class":13},
    {"class":13,"fields":[[14,8],[15,{"hex":"0007"}]]}],"id":0}]})";
constexpr char kLines[] = R"({"vs":0,"class":13,"fields":[[14,7],[12,"a rather long value"]]}
{"vs":0,"class":13,"fields":[[14,8],[15,7]]}
)";
constexpr char kScript[] =
    "add 3\nadd 0 13 14=1 15=2 12=alpha\nset 0 13 14=7 15=3\nunset 0 13 14=7 12\ndel 0 13 14=8\n";
constexpr char kDifference[] =
    "add 0 13 14=1 15=2 12=alpha\nset 0 13 14=7 15=3\nunset 0 13 14=7 12\ndel 0 13 14=8\nadd 3\n";
constexpr uint32_t kKey[] = {14, 4, 7};

/** Bytes that a call has given. */
struct Given : TAV_Bytes {
    Given() : TAV_Bytes{nullptr, 0} {}
    ~Given() { TAV_BytesFree(this); }
    Given(const Given &) = delete;
    Given &operator=(const Given &) = delete;
    std::string Text() const { return {static_cast<const char *>(data), size}; }
};

/** Puts an empty store in the place of another one. Null without memory. */
CfgLocal *Renew(CfgLocal **local) {
    TAV_ExtCfgClose(std::exchange(*local, nullptr));
    static_cast<void>(TAV_StoreNew(local));
    return *local;
}

uint32_t Import(std::string_view json, uint32_t form, CfgLocal *local) {
    return local == nullptr ? TAV_ERR_NO_MEMORY
                            : TAV_StoreFromJson(local, form, json.data(), json.size(), nullptr, nullptr);
}

/** What calls are about. */
struct World {
    TempFolder folder;
    const std::string names = folder.Path("names.json");
    const Shortage shortage;
    bool wasHit = false;

    explicit World(const Shortage &planned) : shortage(planned) { WriteFile(names, Text(kNames)); }

    /** Makes a call with too little memory, and again with enough when it has failed. */
    template <typename Call>
    void Try(const char *name, uint32_t expected, Call call) {
        SCOPED_TRACE(name);
        g_shortage = shortage;
        uint32_t code = call();
        const bool isHit = std::exchange(g_shortage, {}).wasHit;
        wasHit = wasHit || isHit;
        if (code == TAV_ERR_NO_MEMORY) {
            EXPECT_TRUE(isHit);
            EXPECT_STRNE(TAV_SessionErrorText(), "");
            code = call();
        }
        EXPECT_EQ(code, expected) << TAV_SessionErrorText();
    }
};

/** Makes calls again and again, until no allocation is left to fail in any of them. */
template <typename Calls>
void Sweep(Calls calls) {
    for (const bool isLast : {false, true}) {
        size_t turn = 0;
        for (bool wasHit = true; wasHit && !testing::Test::HasFailure();) {
            SCOPED_TRACE("allocation " + std::to_string(++turn) + (isLast ? " and all that follow" : ""));
            World world({turn, isLast});
            calls(&world);
            wasHit = world.wasHit;
            TAV_Posix_MemAccount account;
            TAV_Posix_MemTotal(&account);
            EXPECT_EQ(account.blocks, 0u) << "blocks are left";
        }
        EXPECT_GT(turn, 2u);
        std::cout << turn << " turns\n";
    }
}

TEST(ShortMemory, NamesAndValues) {
    Sweep([](World *world) {
        TAV_Names *names = nullptr;
        uint32_t id = 0;
        Given text[4];
        world->Try("load", TAV_OK, [&] { return TAV_NamesLoad(world->names.c_str(), &names); });
        world->Try("class", TAV_OK, [&] { return TAV_NamesClass(names, "row", &id); });
        world->Try("field", TAV_ERR_INVALID, [&] { return TAV_NamesField(names, 13, "nothing so named", &id); });
        world->Try("class text", TAV_OK, [&] { return TAV_NamesClassText(names, 13, &text[0]); });
        world->Try("field text", TAV_OK, [&] { return TAV_NamesFieldText(names, 13, 99, &text[1]); });
        world->Try("parse", TAV_OK, [&] { return TAV_ValueParse(18, "192.0.2.1", 9, &text[2]); });
        world->Try("format", TAV_OK, [&] { return TAV_ValueFormat(12, "a rather long value", 19, &text[3]); });
        EXPECT_EQ(text[0].Text() + text[1].Text() + text[3].Text(), "row99a rather long value");
        TAV_NamesFree(names);
    });
}

TEST(ShortMemory, StoresAndJson) {
    Sweep([](World *world) {
        CfgLocal *empty = nullptr, *local = nullptr;
        Given bytes[4], json[2];
        world->Try("new", TAV_OK, [&] { return TAV_StoreNew(&empty); });
        world->Try("broken JSON", TAV_ERR_INVALID, [&] { return Import(kBroken, TAV_JSON_TREE, empty); });
        world->Try("JSON into a store", TAV_OK, [&] { return Import(kTree, TAV_JSON_TREE, Renew(&local)); });
        world->Try("systems", TAV_OK, [&] { return TAV_StoreListVs(local, &bytes[0]); });
        world->Try("classes", TAV_OK, [&] { return TAV_StoreListClasses(local, 0, &bytes[1]); });
        world->Try("find", TAV_OK, [&] { return TAV_StoreFind(local, 0, 13, kKey, sizeof(kKey), &bytes[2]); });
        world->Try("read", TAV_OK, [&] { return TAV_StoreRead(local, 0, 13, kKey, sizeof(kKey), 99, &bytes[3]); });
        world->Try("tree", TAV_OK, [&] { return TAV_StoreToJson(local, TAV_JSON_TREE, nullptr, &json[0]); });
        world->Try("lines", TAV_OK, [&] { return TAV_StoreToJson(local, TAV_JSON_LINES, nullptr, &json[1]); });
        EXPECT_EQ(json[1].Text(), kLines);
        world->Try("lines into a store", TAV_OK, [&] { return Import(kLines, TAV_JSON_LINES, Renew(&local)); });
        TAV_ExtCfgClose(empty);
        TAV_ExtCfgClose(local);
    });
}

TEST(ShortMemory, Changes) {
    Sweep([](World *world) {
        CfgLocal *before = nullptr, *after = nullptr;
        ASSERT_EQ(Import(kLines, TAV_JSON_LINES, Renew(&before)) | Import(kLines, TAV_JSON_LINES, Renew(&after)),
                  TAV_OK);
        TAV_Changes *changes[5] = {};
        TAV_Change change = {};
        Given text[3];
        world->Try("parse", TAV_OK,
                   [&] { return TAV_ChangesParse(kScript, sizeof(kScript) - 1, nullptr, &changes[0]); });
        world->Try("apply", TAV_OK, [&] { return TAV_ChangesApply(changes[0], after, &changes[1]); });
        world->Try("diff", TAV_OK, [&] { return TAV_ChangesDiff(before, after, nullptr, &changes[2]); });
        world->Try("write", TAV_OK, [&] { return TAV_ChangesToScript(changes[2], nullptr, &text[0]); });
        EXPECT_EQ(text[0].Text(), kDifference);
        world->Try("to JSON", TAV_OK, [&] { return TAV_ChangesToJson(changes[2], nullptr, &text[1]); });
        world->Try("merge", TAV_OK, [&] { return TAV_ChangesMerge(after, before, &changes[3]); });
        world->Try("new", TAV_OK, [&] { return TAV_ChangesNew(&changes[4]); });
        world->Try("get", TAV_OK, [&] { return TAV_ChangesGet(changes[2], 1, &change); });
        world->Try("append", TAV_OK, [&] { return TAV_ChangesAppend(changes[4], &change); });
        world->Try("make", TAV_OK, [&] { return TAV_ChangeMake(&change, before); });
        world->Try("take back", TAV_OK, [&] { return TAV_ChangesApply(changes[1], after, nullptr); });
        world->Try("is as before", TAV_OK, [&] { return TAV_StoreToJson(after, TAV_JSON_LINES, nullptr, &text[2]); });
        EXPECT_EQ(text[2].Text(), kLines);
        std::ranges::for_each(changes, TAV_ChangesFree);
        TAV_ExtCfgClose(before);
        TAV_ExtCfgClose(after);
    });
}

}  // namespace
