/*
 * The C interface of changes.
 */
#include "session/c_call.h"
#include "tav/diff.h"
#include "tav/json.h"
#include "tav/script.h"

using session::Borrowed;
using session::Give;
using session::Guard;
using session::NamesOf;
using session::RefuseNull;

struct TAV_Changes {
    tav::Changes changes;
    std::string fields = {};  // of the change that was given last
};

namespace {

tav::Change ChangeOf(const TAV_Change &from) {
    const bool isOfEither = from.verb == TAV_CHANGE_ADD || from.verb == TAV_CHANGE_DELETE;
    if (from.verb > TAV_CHANGE_DELETE || (from.isOfRecord == 0 && !isOfEither)) {
        throw tav::Error(TAV_ERR_INVALID, "", "this verb is none of a change, or of a virtual system");
    }
    tav::Change change{static_cast<tav::Verb>(from.verb), from.vsId, {}, {}, {}};
    if (from.isOfRecord == 0) {
        return change;
    }
    change.cid = from.cid;
    session::ForEachField(from.fields, from.fields != nullptr ? from.fieldsSize : 0,
                          [&](uint32_t fid, std::string_view value) {
                              change.fields.push_back({fid, std::string(value)});
                          });
    if (from.unset != nullptr) {
        change.unset.assign(from.unset, from.unset + from.unsetCount);
    }
    return change;
}

tav::DiffScope ScopeOf(const TAV_DiffScope *from) {
    tav::DiffScope scope;
    if (from == nullptr) {
        return scope;
    }
    if (from->vsId != nullptr) {
        scope.vsId = *from->vsId;
    }
    if (from->cid != nullptr) {
        scope.cid = *from->cid;
    }
    if (from->ignored != nullptr) {
        scope.ignored.insert(from->ignored, from->ignored + from->ignoredCount);
    }
    return scope;
}

/** Makes changes for the caller. */
template <typename Make>
uint32_t GiveChanges(TAV_Changes **changes, bool isNull, Make make) {
    if (changes != nullptr) {
        *changes = nullptr;
    }
    if (changes == nullptr || isNull) {
        return RefuseNull();
    }
    return Guard([&] {
        *changes = new TAV_Changes{make()};
        return TAV_OK;
    });
}

/** Writes changes line by line. */
uint32_t GiveLines(const TAV_Changes *changes, const TAV_Names *names, TAV_Bytes *text,
                   std::string (*write)(const tav::Change &, const tav::Names &)) {
    if (text != nullptr) {
        *text = {nullptr, 0};
    }
    if (changes == nullptr || text == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        std::string lines;
        for (const tav::Change &change : changes->changes) {
            lines += write(change, NamesOf(names)) + '\n';
        }
        Give(lines, text);
        return TAV_OK;
    });
}

}  // namespace

uint32_t TAV_ChangeMake(const TAV_Change *change, CfgLocal *local) {
    if (change == nullptr || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        tav::Make(ChangeOf(*change), &*Borrowed(local));
        return TAV_OK;
    });
}

uint32_t TAV_ChangesNew(TAV_Changes **changes) {
    return GiveChanges(changes, false, [] { return tav::Changes(); });
}

void TAV_ChangesFree(TAV_Changes *changes) {
    delete changes;
}

uint32_t TAV_ChangesAppend(TAV_Changes *changes, const TAV_Change *change) {
    if (changes == nullptr || change == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        changes->changes.push_back(ChangeOf(*change));
        return TAV_OK;
    });
}

uint32_t TAV_ChangesDiff(CfgLocal *before, CfgLocal *after, const TAV_DiffScope *scope, TAV_Changes **changes) {
    return GiveChanges(changes, before == nullptr || after == nullptr,
                       [&] { return tav::Diff(*Borrowed(before), *Borrowed(after), ScopeOf(scope)); });
}

uint32_t TAV_ChangesMerge(CfgLocal *from, CfgLocal *into, TAV_Changes **changes) {
    return GiveChanges(changes, from == nullptr || into == nullptr,
                       [&] { return tav::Merge(*Borrowed(from), *Borrowed(into)); });
}

uint32_t TAV_ChangesParse(const char *script, size_t length, const TAV_Names *names, TAV_Changes **changes) {
    return GiveChanges(changes, script == nullptr, [&] { return tav::ParseScript({script, length}, NamesOf(names)); });
}

size_t TAV_ChangesCount(const TAV_Changes *changes) {
    return changes != nullptr ? changes->changes.size() : 0;
}

uint32_t TAV_ChangesGet(TAV_Changes *changes, size_t index, TAV_Change *change) {
    if (changes == nullptr || change == nullptr) {
        return RefuseNull();
    }
    return Guard([&]() -> uint32_t {
        if (index >= changes->changes.size()) {
            throw tav::Error(TAV_ERR_NOT_FOUND, "", "there are not so many changes");
        }
        const tav::Change &from = changes->changes[index];
        std::string fields;
        for (const auto &[fid, value] : from.fields) {
            session::AppendField(&fields, fid, value);
        }
        changes->fields = std::move(fields);
        change->verb = static_cast<uint32_t>(from.verb);
        change->vsId = from.vsId;
        change->isOfRecord = from.cid ? 1 : 0;
        change->cid = from.cid.value_or(0);
        change->fields = changes->fields.data();
        change->fieldsSize = changes->fields.size();
        change->unset = from.unset.data();
        change->unsetCount = from.unset.size();
        return TAV_OK;
    });
}

uint32_t TAV_ChangesCountRecords(const TAV_Changes *changes, TAV_ChangeCounts *counts) {
    if (changes == nullptr || counts == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        const tav::ChangeCounts from = tav::CountChanges(changes->changes);
        *counts = {from.added, from.changed, from.deleted};
        return TAV_OK;
    });
}

uint32_t TAV_ChangesToScript(const TAV_Changes *changes, const TAV_Names *names, TAV_Bytes *script) {
    return GiveLines(changes, names, script, tav::WriteChange);
}

uint32_t TAV_ChangesToJson(const TAV_Changes *changes, const TAV_Names *names, TAV_Bytes *text) {
    return GiveLines(changes, names, text, tav::ChangeToJson);
}

uint32_t TAV_ChangesApply(const TAV_Changes *changes, CfgLocal *local, TAV_Changes **inverse) {
    if (inverse != nullptr) {
        *inverse = nullptr;
    }
    if (changes == nullptr || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        auto back = std::make_unique<TAV_Changes>();
        back->changes = tav::Apply(changes->changes, &*Borrowed(local));
        if (inverse != nullptr) {
            *inverse = back.release();
        }
        return TAV_OK;
    });
}
