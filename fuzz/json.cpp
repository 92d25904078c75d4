// JSON texts, as a tree and as lines. What is read can be written, and gives the same store again, in either form.
#include "tav/json.h"
#include "support.h"

/** Reads a text into a new store; nothing when the text is refused. */
static std::optional<tav::Store> Read(const std::string &text, tav::JsonForm form) {
    tav::Store store = tav::Store::New(Scratch("json.dat"));
    try {
        tav::ReadJson(text, form, &store);
        return store;
    } catch (const tav::Error &) {
        return {};
    }
}

static std::string Write(const tav::Store &store, tav::JsonForm form) {
    std::string text;
    tav::WriteJson(store, form, [&](std::string_view piece) { text += piece; });
    return text;
}

void Fuzz(FuzzedDataProvider *input) {
    const auto form = input->ConsumeBool() ? tav::JsonForm::kLines : tav::JsonForm::kTree;
    const std::optional<tav::Store> store = Read(input->ConsumeRemainingBytesAsString(), form);
    if (!store || store->begin() == store->end()) {
        return;
    }
    const std::string lines = Write(*store, tav::JsonForm::kLines);
    const std::optional<tav::Store> again = Read(Write(*store, tav::JsonForm::kTree), tav::JsonForm::kTree);
    assert(again && Write(*again, tav::JsonForm::kLines) == lines);
}
