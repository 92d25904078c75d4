/*
 * Which slots of a vector are empty: finds the first empty one and the last item in a few steps, whatever their number.
 */
#ifndef CONTAINERS_SLOT_MAP_H
#define CONTAINERS_SLOT_MAP_H

#include "containers/hierarchical_bitmap.h"

/** A bit for each slot, 1 while it is empty, and sets of the words that have a hole and of those that have an item. */
struct VEC_SlotMap {
  public:
    using Word = containers::HierarchicalBitmap::Word;

    /** Returns how many words a map of so many slots takes beside itself; about a bit for each slot. */
    static uint32_t WordsFor(uint32_t slotCount) {
        const uint32_t words = WordCount(slotCount);
        return words + 2 * Bitmap::WordsFor(words);
    }

    /** Makes the map of slots that are all empty, of WordsFor(slotCount) words, which must be 0. */
    VEC_SlotMap(uint32_t slotCount, Word *words)
        : empty_(words),
          withHole_(WordCount(slotCount), words + WordCount(slotCount)),
          withItem_(WordCount(slotCount), words + WordCount(slotCount) + Bitmap::WordsFor(WordCount(slotCount))) {
        for (uint32_t at = 0; at < WordCount(slotCount); ++at) {
            empty_[at] = kAllEmpty;  // the bits behind the last slot stay so
            withHole_.Insert(at);
        }
    }

    void NoteItem(uint32_t slot) {
        Word &word = empty_[slot / kBits];
        if (word == kAllEmpty) {
            withItem_.Insert(slot / kBits);
        }
        word &= ~BitOf(slot);
        if (word == 0) {
            withHole_.Erase(slot / kBits);
        }
    }

    void NoteHole(uint32_t slot) {
        Word &word = empty_[slot / kBits];
        if (word == 0) {
            withHole_.Insert(slot / kBits);
        }
        word |= BitOf(slot);
        if (word == kAllEmpty) {
            withItem_.Erase(slot / kBits);
        }
    }

    /** Returns the first empty slot; when there is none, a number that is no slot's. */
    uint32_t FirstHole() const {
        const uint32_t at = withHole_.First();
        return at == Bitmap::kNone ? at : at * kBits + static_cast<uint32_t>(std::countr_zero(empty_[at]));
    }

    /** Returns how many slots there are up to the last item; 0 when there is none. */
    uint32_t EndOfItems() const {
        const uint32_t at = withItem_.Last();
        return at == Bitmap::kNone ? 0 : (at + 1) * kBits - static_cast<uint32_t>(std::countl_zero(~empty_[at]));
    }

  private:
    using Bitmap = containers::HierarchicalBitmap;
    static constexpr uint32_t kBits = 8 * sizeof(Word);
    static constexpr Word kAllEmpty = ~Word{0};

    static uint32_t WordCount(uint32_t slotCount) { return slotCount / kBits + (slotCount % kBits != 0 ? 1 : 0); }
    static Word BitOf(uint32_t slot) { return Word{1} << slot % kBits; }

    Word *empty_;
    Bitmap withHole_;
    Bitmap withItem_;
};

#endif
