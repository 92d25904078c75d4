/*
 * A set of numbers that finds its smallest and its greatest in a few steps, whatever its size.
 */
#ifndef CONTAINERS_HIERARCHICAL_BITMAP_H
#define CONTAINERS_HIERARCHICAL_BITMAP_H

#include <bit>
#include <cstdint>

namespace containers {

/**
 * A bit for each number, and above each level one with a bit for each of its words that is not 0, up to a level of one
 * word. Keeps pointers into words that its user provides.
 */
class HierarchicalBitmap {
  public:
    /** As wide as the host counts bits in one step. */
    using Word = uintptr_t;

    static constexpr uint32_t kNone = UINT32_MAX;

    /** Returns how many words the numbers below `count` take; about a bit for each number. */
    static uint32_t WordsFor(uint32_t count) {
        uint32_t words = 0;
        do {
            count = WordCount(count);
            words += count;
        } while (count > 1);
        return words;
    }

    /** Makes an empty set for the numbers below `count` of WordsFor(count) words, which must be 0. */
    HierarchicalBitmap(uint32_t count, Word *words) {
        do {
            levels_[levelCount_++] = words;
            count = WordCount(count);
            words += count;
        } while (count > 1);
    }

    void Insert(uint32_t number) {
        for (uint32_t level = 0; level < levelCount_; ++level, number /= kBits) {
            Word &word = levels_[level][number / kBits];
            const bool wasEmpty = word == 0;
            word |= BitOf(number);
            if (!wasEmpty) {
                return;
            }
        }
    }

    void Erase(uint32_t number) {
        for (uint32_t level = 0; level < levelCount_; ++level, number /= kBits) {
            Word &word = levels_[level][number / kBits];
            word &= ~BitOf(number);
            if (word != 0) {
                return;
            }
        }
    }

    /** Returns the smallest number of the set, or kNone. */
    uint32_t First() const {
        return Descend([](Word word) { return std::countr_zero(word); });
    }

    /** Returns the greatest number of the set, or kNone. */
    uint32_t Last() const {
        return Descend([](Word word) { return int{kBits} - 1 - std::countl_zero(word); });
    }

  private:
    static constexpr uint32_t kBits = 8 * sizeof(Word);
    static constexpr uint32_t kMaxLevels = 7;  // for any 32-bit number

    static uint32_t WordCount(uint32_t count) { return count / kBits + (count % kBits != 0 ? 1 : 0); }
    static Word BitOf(uint32_t number) { return Word{1} << number % kBits; }

    /** Goes from the top word to a number, at each level to the bit that `pick` chooses. */
    template <typename Pick>
    uint32_t Descend(Pick pick) const {
        if (levels_[levelCount_ - 1][0] == 0) {
            return kNone;
        }
        uint32_t number = 0;
        for (uint32_t level = levelCount_; level-- > 0;) {
            number = number * kBits + static_cast<uint32_t>(pick(levels_[level][number]));
        }
        return number;
    }

    Word *levels_[kMaxLevels] = {};  // the lowest first
    uint32_t levelCount_ = 0;
};

}  // namespace containers

#endif
