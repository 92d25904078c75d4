/*
 * Changes applied to a store. What a record or a virtual system was before it is first touched is noted: from the notes
 * the store is put back when a change fails, and the inverse is made when none does.
 */
#include "tav/changes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <unordered_set>

#include "tav/diff.h"
#include "tav/values.h"

namespace tav {

namespace {

/** Names what a change is for: "VS 0 class 13 14=5". */
std::string DescribeChange(const Change &change) {
    std::string text = fmt::format("VS {}", change.vsId);
    if (change.cid) {
        text += fmt::format(" class {}", *change.cid);
        for (const auto &[fid, value] : change.fields) {
            if (IsKeyField(*change.cid, fid)) {
                text += fmt::format(" {}={}", fid, FormatValue(fid, value));
            }
        }
    }
    return text;
}

/** Says no to a change. */
[[noreturn]] void Refuse(uint32_t code, const Change &change, const std::string &why) {
    throw Error(code, DescribeChange(change), why);
}

Bytes BytesOf(const std::string &value) {
    return {reinterpret_cast<const uint8_t *>(value.data()), value.size()};
}

/** Makes the record that a change's fields are. */
Record RecordOf(const Change &change) {
    Record record(*change.cid);
    for (const auto &[fid, value] : change.fields) {
        record.Add(fid, BytesOf(value));
    }
    return record;
}

/** Refuses what the library would take although it cannot be read back, and what does not name one record. */
void RequireSound(const Change &change) {
    if (!IsRecordClass(*change.cid)) {
        Refuse(TAV_ERR_INVALID, change, "this is no class of records");
    }
    for (const uint32_t fid : KeyFields(*change.cid)) {
        const auto count = std::ranges::count(change.fields, fid, &ChangeField::fid);
        if (count == 0) {
            Refuse(TAV_ERR_INVALID, change, fmt::format("key field {} is missing", fid));
        }
        if (count > 1 && change.verb != Verb::kAdd) {
            Refuse(TAV_ERR_INVALID, change, fmt::format("key field {} is given twice", fid));
        }
    }
    if (change.verb == Verb::kAdd && change.fields.empty()) {
        Refuse(TAV_ERR_INVALID, change, "a record without fields cannot be read back");
    }
}

void RefuseRepeats(const Change &change) {
    std::unordered_set<uint32_t> seen;
    for (const ChangeField &field : change.fields) {
        if (!seen.insert(field.fid).second) {
            Refuse(TAV_ERR_INVALID, change, fmt::format("field {} is given twice, and only one can be set", field.fid));
        }
    }
}

/** A record as it was before it was touched, or its key when it was not there. */
struct Former {
    Record record;
    bool wasThere;
};

/** Where a record stands. */
using Place = std::pair<uint32_t, RecordView>;  // VS, and a record with the class and key

/** The order of records in a store. */
struct InOrder {
    bool operator()(const Place &a, const Place &b) const {
        return a.first != b.first ? a.first < b.first
                                  : TAV_ExtCfgRecordCompare(&a.second.Get()->fields, &b.second.Get()->fields) < 0;
    }
};

/** A virtual system that was made or taken out. */
struct VsStep {
    uint32_t vsId;
    TAV_ExtCfgVsNode *taken;  // null when it was made, or was to be
    SLL_Node *previous;       // what stood before the one that was taken out
};

/** Takes a virtual system out of the list of a store, to be freed by the caller. */
VsStep TakeOut(CfgLocal *local, uint32_t vsId) {
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, vsId);
    SLL_Node *previous = &local->vsList.head.link;
    while (previous->next != &vs->link) {
        previous = previous->next;
    }
    SLL_Delete(&local->vsList, &vs->link);
    return {vsId, vs, previous};
}

/** Changes of one store, which can be taken back. */
class Application {
  public:
    explicit Application(Store *store) : store_(store) {}

    ~Application() {
        for (const VsStep &step : vsSteps_) {
            TAV_ExtCfgVsNodeFree(step.taken);
        }
    }

    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    void Make(const Change &change) {
        if (!change.cid) {
            change.verb == Verb::kAdd ? AddVs(change) : DeleteVs(change);
            return;
        }
        RequireSound(change);
        switch (change.verb) {
            case Verb::kAdd:
                return AddRecord(change);
            case Verb::kSet:
                return SetRecord(change);
            case Verb::kUnset:
                return UnsetFields(change);
            case Verb::kDelete:
                return DeleteRecord(change);
        }
    }

    /** Puts the store back, for which no memory is needed. Nothing more can be done here then. */
    void TakeBack() {
        for (auto step = vsSteps_.rbegin(); step != vsSteps_.rend(); ++step) {
            if (step->taken == nullptr && store_->FindVs(step->vsId)) {
                TAV_ExtCfgVsNodeFree(TakeOut(store_->Get(), step->vsId).taken);
            } else if (step->taken != nullptr) {
                SLL_Insert_In_Middle(&store_->Get()->vsList, step->previous, &step->taken->link);
                step->taken = nullptr;
            }
        }
        for (auto &[place, former] : formers_) {
            if (store_->Find(place.first, former.record)) {
                store_->Remove(place.first, former.record);
            }
            if (former.wasThere) {
                store_->Add(place.first, std::move(former.record));
            }
        }
    }

    /** The changes that put the store back: the difference between what was touched as it is and as it was. */
    Changes Inverse() const {
        Store was = Store::New("/was"), is = Store::New("/is");
        for (const auto &[vsId, wasThere] : vsWasThere_) {
            if (wasThere) {
                was.AddVs(vsId);
            }
            if (store_->FindVs(vsId)) {
                is.AddVs(vsId);
            }
        }
        for (const auto &[place, former] : formers_) {
            if (former.wasThere) {
                was.Add(place.first, Record(former.record.View()));
            }
            if (const std::optional<RecordView> now = store_->Find(place.first, former.record)) {
                is.Add(place.first, Record(*now));
            }
        }
        return Diff(is, was);
    }

  private:
    void AddVs(const Change &change) {
        if (store_->FindVs(change.vsId)) {
            Refuse(TAV_ERR_INVALID, change, "it is there already");
        }
        RequireVs(change.vsId);
    }

    void DeleteVs(const Change &change) {
        const std::optional<VsView> vs = store_->FindVs(change.vsId);
        if (!vs) {
            Refuse(TAV_ERR_NOT_FOUND, change, "there is no such VS");
        }
        if (std::any_of(vs->begin(), VsView::Iterator(), [](ClassView c) { return c.begin() != c.end(); })) {
            Refuse(TAV_ERR_INVALID, change, "it still has records");
        }
        vsWasThere_.emplace(change.vsId, true);
        vsSteps_.emplace_back();  // before anything is changed: there may be no memory for it
        vsSteps_.back() = TakeOut(store_->Get(), change.vsId);
    }

    void AddRecord(const Change &change) {
        Record record = RecordOf(change);
        if (store_->Find(change.vsId, record)) {  // before it is noted as one that was not there
            Refuse(TAV_ERR_INVALID, change, "there is a record with this key already");
        }
        RequireVs(change.vsId);
        Note(change.vsId, record.View(), false);
        const uint32_t code = TAV_ExtCfgAddRecord(change.vsId, record.Get(), store_->Get());
        if (code == TAV_ERR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        if (code != TAV_OK) {
            Refuse(code, change, "it cannot be added");
        }
        static_cast<void>(record.Release());
    }

    void SetRecord(const Change &change) {
        RefuseRepeats(change);
        const Record given = RecordOf(change);
        TAV_ExtCfgRecordNode *stored = RequireRecord(change, given);
        for (const FieldView field : given.View()) {
            TAV_ExtCfgFieldNode *old = TAV_ExtCfgFieldNodeFind(&stored->fields, field.Id());
            // A comparison that is blind to some bytes, or to all of an unknown field, would keep the old value.
            if (old != nullptr && TAV_ExtCfgFieldCompare(old, field.Get()) == 0 &&
                FieldView(old).Text() != field.Text() && !IsKeyField(*change.cid, field.Id())) {
                TAV_ExtCfgFieldNodeDel(stored, old);
            }
        }
        store_->Set(change.vsId, given);
    }

    void UnsetFields(const Change &change) {
        TAV_ExtCfgRecordNode *stored = RequireRecord(change, RecordOf(change));
        for (const uint32_t fid : change.unset) {
            if (IsKeyField(*change.cid, fid)) {
                Refuse(TAV_ERR_INVALID, change, fmt::format("key field {} cannot be taken out", fid));
            }
            TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&stored->fields, fid);
            if (field == nullptr) {
                Refuse(TAV_ERR_NOT_FOUND, change, fmt::format("the record has no field {}", fid));
            }
            for (; field != nullptr; field = TAV_ExtCfgFieldNodeFind(&stored->fields, fid)) {
                TAV_ExtCfgFieldNodeDel(stored, field);
            }
        }
        if (stored->fields.count == 0) {
            Refuse(TAV_ERR_INVALID, change, "the record would be without any field");
        }
    }

    void DeleteRecord(const Change &change) {
        const Record key = RecordOf(change);
        RequireRecord(change, key);
        store_->Remove(change.vsId, key);
    }

    /** Makes a virtual system when it is absent. */
    void RequireVs(uint32_t vsId) {
        const bool isThere = store_->FindVs(vsId).has_value();
        vsWasThere_.emplace(vsId, isThere);
        if (!isThere) {
            vsSteps_.push_back({vsId, nullptr, nullptr});
            store_->AddVs(vsId);
        }
    }

    /** Finds the record that is to be changed, and notes it. */
    TAV_ExtCfgRecordNode *RequireRecord(const Change &change, const Record &key) {
        TAV_ExtCfgRecordNode *stored = TAV_ExtCfgGetRecord(change.vsId, key.Get(), store_->Get());
        if (stored == nullptr) {
            Refuse(TAV_ERR_NOT_FOUND, change, "there is no such record");
        }
        vsWasThere_.emplace(change.vsId, true);
        Note(change.vsId, RecordView(stored), true);
        return stored;
    }

    /** Notes what a record is before it is touched for the first time. */
    void Note(uint32_t vsId, RecordView record, bool isThere) {
        if (!formers_.contains({vsId, record})) {
            Former former{isThere ? Record(record) : Record::KeyOf(record), isThere};
            const Place place(vsId, former.record.View());
            formers_.emplace(place, std::move(former));
        }
    }

    Store *store_;
    std::map<Place, Former, InOrder> formers_;  // keyed by the records in them
    std::map<uint32_t, bool> vsWasThere_;
    std::vector<VsStep> vsSteps_;
};

void RequireWritable(const Store &store) {
    if (store.Get()->mode == TAV_EXT_MODE_READ_ONLY) {
        throw Error(TAV_ERR_REFUSED, "", "the store is read-only");
    }
}

/** Where a change stands, for people. */
std::string PlaceOf(const Change &change, size_t index) {
    return change.line != 0 ? fmt::format("line {}", change.line) : fmt::format("change {}", index + 1);
}

/** Returns whether two changes are of the same record. */
bool IsSameRecord(const Change &a, const Change &b) {
    if (a.vsId != b.vsId || a.cid != b.cid) {
        return false;
    }
    const std::vector<uint32_t> keys = KeyFields(*a.cid);
    return std::all_of(keys.begin(), keys.end(), [&](uint32_t fid) {
        const auto inA = std::ranges::find(a.fields, fid, &ChangeField::fid);
        const auto inB = std::ranges::find(b.fields, fid, &ChangeField::fid);
        return inA != a.fields.end() && inB != b.fields.end() && inA->value == inB->value;
    });
}

}  // namespace

Changes Apply(const Changes &changes, Store *store) {
    RequireWritable(*store);
    Application application(store);
    for (size_t i = 0; i < changes.size(); ++i) {
        try {
            application.Make(changes[i]);
        } catch (const Error &error) {
            application.TakeBack();
            throw Error(error.Code(), PlaceOf(changes[i], i), error.what());
        } catch (...) {
            application.TakeBack();
            throw;
        }
    }
    try {
        return application.Inverse();
    } catch (...) {
        application.TakeBack();
        throw;
    }
}

void Make(const Change &change, Store *store) {
    RequireWritable(*store);
    Application application(store);
    try {
        application.Make(change);
    } catch (...) {
        application.TakeBack();
        throw;
    }
}

void Clear(Store *store) {
    while (const TAV_ExtCfgVsNode *vs = TAV_ExtCfgLocalFirstVs(store->Get())) {
        TAV_ExtCfgVsNodeFree(TakeOut(store->Get(), vs->vsId).taken);
    }
}

ChangeCounts CountChanges(const Changes &changes) {
    ChangeCounts counts;
    const Change *previous = nullptr;
    for (const Change &change : changes) {
        if (!change.cid) {
            continue;
        }
        const bool goesOn = previous != nullptr && IsSameRecord(*previous, change);
        if (goesOn && previous->verb == Verb::kDelete && change.verb == Verb::kAdd) {
            --counts.deleted;
            ++counts.changed;
        } else if (change.verb == Verb::kAdd || change.verb == Verb::kDelete) {
            ++(change.verb == Verb::kAdd ? counts.added : counts.deleted);
        } else if (!goesOn) {
            ++counts.changed;
        }
        previous = &change;
    }
    return counts;
}

}  // namespace tav
