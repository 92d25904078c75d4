/*
 * What tells two stores apart: both are walked side by side, in the order of their keys.
 */
#include "tav/diff.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "tav/values.h"

namespace tav {

namespace {

bool SameValue(FieldView a, FieldView b) {
    return a.Id() == b.Id() && a.Text() == b.Text();
}

/** The fields of a record that count, without a copy. */
std::vector<FieldView> FieldsOf(RecordView record, const DiffScope &scope) {
    std::vector<FieldView> fields;
    fields.reserve(record.FieldCount());
    for (const FieldView field : record) {
        if (!scope.ignored.contains(field.Id()) || IsKeyField(record.Cid(), field.Id())) {
            fields.push_back(field);
        }
    }
    return fields;
}

bool SameFields(RecordView a, RecordView b, const DiffScope &scope) {
    if (scope.ignored.empty()) {
        return a.FieldCount() == b.FieldCount() && std::ranges::equal(a, b, SameValue);
    }
    return std::ranges::equal(FieldsOf(a, scope), FieldsOf(b, scope), SameValue);
}

/** Compares stores of which one may be none: a VS without the other is compared with no records. */
class Comparison {
  public:
    Comparison(const DiffScope &scope, const DiffVisitor &visitor) : scope_(scope), visitor_(visitor) {}

    void CompareStores(const Store &before, const Store &after) {
        for (const VsView vs : before) {
            const std::optional<VsView> match = after.FindVs(vs.Id());
            if (Wants(scope_.vsId, vs.Id())) {
                CompareVs(vs.Id(), vs, match);
                if (!match && !scope_.cid && visitor_.vsGone) {
                    visitor_.vsGone(vs.Id());
                }
            }
        }
        for (const VsView vs : after) {
            if (Wants(scope_.vsId, vs.Id()) && !before.FindVs(vs.Id())) {
                if (!scope_.cid && visitor_.vsNew) {
                    visitor_.vsNew(vs.Id());
                }
                CompareVs(vs.Id(), {}, vs);
            }
        }
    }

  private:
    static bool Wants(const std::optional<uint32_t> &wanted, uint32_t id) { return !wanted || *wanted == id; }

    void CompareVs(uint32_t vsId, const std::optional<VsView> &before, const std::optional<VsView> &after) {
        if (before) {
            for (const ClassView records : *before) {
                if (Wants(scope_.cid, records.Cid())) {
                    CompareClass(vsId, records, after ? after->Find(records.Cid()) : std::nullopt);
                }
            }
        }
        if (after) {
            for (const ClassView records : *after) {
                if (Wants(scope_.cid, records.Cid()) && !(before && before->Find(records.Cid()))) {
                    CompareClass(vsId, {}, records);
                }
            }
        }
    }

    void CompareClass(uint32_t vsId, const std::optional<ClassView> &before, const std::optional<ClassView> &after) {
        using Iterator = ClassView::Iterator;
        Iterator a = before ? before->begin() : Iterator();
        Iterator b = after ? after->begin() : Iterator();
        while (a != std::default_sentinel || b != std::default_sentinel) {
            const int order = OrderOf(a, b);
            if (order < 0) {
                Tell(visitor_.gone, vsId, *a);
            } else if (order > 0) {
                Tell(visitor_.added, vsId, *b);
            } else if (visitor_.changed && !SameFields(*a, *b, scope_)) {
                visitor_.changed(vsId, *a, *b);
            }
            if (order <= 0) {
                ++a;
            }
            if (order >= 0) {
                ++b;
            }
        }
    }

    /** Which of two records comes first in the order of keys; the end comes last. */
    static int OrderOf(const ClassView::Iterator &a, const ClassView::Iterator &b) {
        if (a == std::default_sentinel || b == std::default_sentinel) {
            return a == std::default_sentinel ? 1 : -1;
        }
        return TAV_ExtCfgRecordCompare(&(*a).Get()->fields, &(*b).Get()->fields);
    }

    static void Tell(const std::function<void(uint32_t, RecordView)> &function, uint32_t vsId, RecordView record) {
        if (function) {
            function(vsId, record);
        }
    }

    const DiffScope &scope_;
    const DiffVisitor &visitor_;
};

ChangeField Copy(FieldView field) {
    return {field.Id(), std::string(field.Text())};
}

/** A change with the key fields of a record. */
Change ChangeOf(Verb verb, uint32_t vsId, RecordView record) {
    Change change{verb, vsId, record.Cid(), {}, {}};
    for (const uint32_t fid : KeyFields(record.Cid())) {
        if (const std::optional<FieldView> field = record.Find(fid)) {
            change.fields.push_back(Copy(*field));
        }
    }
    return change;
}

/** Writes down how one record becomes another one with the same key. */
class RecordDiff {
  public:
    RecordDiff(uint32_t vsId, RecordView before, RecordView after, const DiffScope &scope)
        : set_(ChangeOf(Verb::kSet, vsId, after)),
          unset_(ChangeOf(Verb::kUnset, vsId, after)),
          before_(FieldsOf(before, scope)),
          after_(FieldsOf(after, scope)),
          firstBefore_(FirstOf(before_)),
          firstAfter_(FirstOf(after_)) {}

    /** Appends the changes. Returns false when setting and unsetting would not give the fields of `after` in order. */
    bool Append(Changes *changes) {
        const size_t keys = set_.fields.size();
        if (!KeepAndUnset() || !SetOthers()) {
            return false;
        }
        if (set_.fields.size() > keys) {
            changes->push_back(std::move(set_));
        }
        if (!unset_.unset.empty()) {
            changes->push_back(std::move(unset_));
        }
        return true;
    }

  private:
    using ById = std::unordered_map<uint32_t, FieldView>;

    static ById FirstOf(const std::vector<FieldView> &fields) {
        ById first;
        for (const FieldView field : fields) {
            first.emplace(field.Id(), field);
        }
        return first;
    }

    /** Whether setting a field leaves it where it stands; a field of another length goes to the end. */
    static bool StaysInPlace(FieldView before, FieldView after) {
        return TAV_ExtCfgFieldCompare(before.Get(), after.Get()) != 0 && before.Text().size() == after.Text().size();
    }

    /** What of the fields stays where it is; and what goes. Returns false when a key field differs. */
    bool KeepAndUnset() {
        std::unordered_set<uint32_t> seen;
        for (const FieldView field : before_) {
            const bool isFirst = seen.insert(field.Id()).second;
            const auto after = firstAfter_.find(field.Id());
            if (after == firstAfter_.end()) {
                if (isFirst) {
                    unset_.unset.push_back(field.Id());
                }
            } else if (!isFirst || SameValue(field, after->second)) {
                result_.push_back(field);
            } else if (IsKeyField(*set_.cid, field.Id())) {
                return false;
            } else if (StaysInPlace(field, after->second)) {
                result_.push_back(after->second);
            }
        }
        return true;
    }

    /** Sets what is new or has changed. Returns whether all of `after` comes out, in order. */
    bool SetOthers() {
        for (const auto &field : after_) {
            if (firstAfter_.at(field.Id()).Get() != field.Get()) {
                continue;
            }
            const auto before = firstBefore_.find(field.Id());
            if (before != firstBefore_.end() && SameValue(before->second, field)) {
                continue;
            }
            set_.fields.push_back(Copy(field));
            if (before == firstBefore_.end() || !StaysInPlace(before->second, field)) {
                result_.push_back(field);
            }
        }
        return std::ranges::equal(result_, after_, SameValue);
    }

    Change set_, unset_;
    std::vector<FieldView> before_, after_;
    ById firstBefore_, firstAfter_;
    std::vector<FieldView> result_;  // what setting and unsetting gives
};

Change AddOf(uint32_t vsId, const std::vector<FieldView> &fields, uint32_t cid) {
    Change change{Verb::kAdd, vsId, cid, {}, {}};
    change.fields.reserve(fields.size());
    for (const FieldView field : fields) {
        change.fields.push_back(Copy(field));
    }
    return change;
}

}  // namespace

void Compare(const Store &before, const Store &after, const DiffScope &scope, const DiffVisitor &visitor) {
    Comparison(scope, visitor).CompareStores(before, after);
}

Changes Diff(const Store &before, const Store &after, const DiffScope &scope) {
    Changes changes;
    DiffVisitor visitor;
    visitor.vsGone = [&](uint32_t vsId) { changes.push_back({Verb::kDelete, vsId, {}, {}, {}}); };
    visitor.vsNew = [&](uint32_t vsId) { changes.push_back({Verb::kAdd, vsId, {}, {}, {}}); };
    visitor.gone = [&](uint32_t vsId, RecordView record) { changes.push_back(ChangeOf(Verb::kDelete, vsId, record)); };
    visitor.added = [&](uint32_t vsId, RecordView record) {
        changes.push_back(AddOf(vsId, FieldsOf(record, scope), record.Cid()));
    };
    visitor.changed = [&](uint32_t vsId, RecordView from, RecordView to) {
        if (!RecordDiff(vsId, from, to, scope).Append(&changes)) {
            changes.push_back(ChangeOf(Verb::kDelete, vsId, from));
            changes.push_back(AddOf(vsId, FieldsOf(to, scope), to.Cid()));
        }
    };
    Compare(before, after, scope, visitor);
    return changes;
}

ChangeCounts CountDifferences(const Store &before, const Store &after, const DiffScope &scope) {
    ChangeCounts counts;
    DiffVisitor visitor;
    visitor.gone = [&](uint32_t, RecordView) { ++counts.deleted; };
    visitor.added = [&](uint32_t, RecordView) { ++counts.added; };
    visitor.changed = [&](uint32_t, RecordView, RecordView) { ++counts.changed; };
    Compare(before, after, scope, visitor);
    return counts;
}

Changes Merge(const Store &from, const Store &into) {
    Changes changes;
    for (const VsView vs : from) {
        const std::optional<VsView> there = into.FindVs(vs.Id());
        if (!there) {
            changes.push_back({Verb::kAdd, vs.Id(), {}, {}, {}});
        }
        for (const ClassView records : vs) {
            for (const RecordView record : records) {
                Change change = AddOf(vs.Id(), FieldsOf(record, {}), record.Cid());
                if (there && TAV_ExtCfgGetRecord(vs.Id(), record.Get(), into.Get()) != nullptr) {
                    change.verb = Verb::kSet;
                }
                changes.push_back(std::move(change));
            }
        }
    }
    return changes;
}

}  // namespace tav
