// Scripts, two of them applied one after the other. What is read can be written and read again; what is applied
// can be taken back; and what cannot be applied leaves the store as it was.
#include <set>

#include "support.h"
#include "tav/changes.h"
#include "tav/diff.h"
#include "tav/script.h"

/** What a store holds, whatever the order of its virtual systems and classes. */
static std::multiset<std::string> ContentOf(const tav::Store &store) {
    std::multiset<std::string> lines;
    const tav::Store empty = tav::Store::New(Scratch("empty.dat"));
    for (const tav::Change &change : tav::Diff(empty, store)) {
        lines.insert(tav::WriteChange(change));
    }
    return lines;
}

static std::optional<tav::Changes> Read(const std::string &text) {
    try {
        return tav::ParseScript(text);
    } catch (const tav::Error &) {
        return {};
    }
}

void Fuzz(FuzzedDataProvider *input) {
    const std::optional<tav::Changes> first = Read(input->ConsumeRandomLengthString());
    const std::optional<tav::Changes> second = Read(input->ConsumeRemainingBytesAsString());
    tav::Store store = tav::Store::New(Scratch("script.dat"));
    for (const std::optional<tav::Changes> &changes : {first, second}) {
        if (!changes) {
            continue;
        }
        std::string text;
        for (const tav::Change &change : *changes) {
            text += tav::WriteChange(change) + '\n';
        }
        assert(tav::ParseScript(text) == *changes);
        const std::multiset<std::string> before = ContentOf(store);
        try {
            const tav::Changes inverse = tav::Apply(*changes, &store);
            const std::multiset<std::string> after = ContentOf(store);
            const tav::Changes again = tav::Apply(inverse, &store);
            assert(ContentOf(store) == before);
            tav::Apply(again, &store);
            assert(ContentOf(store) == after);
        } catch (const tav::Error &) {
            assert(ContentOf(store) == before);
        }
    }
}
