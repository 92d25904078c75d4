/*
 * The content of a file in plain C++: virtual systems, their records, and the records' fields, each in file order. A
 * store has it in the order of the keys, and has none of a file that does not load.
 */
#ifndef TAVCFG_MODEL_H
#define TAVCFG_MODEL_H

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "value.h"

namespace tavcfg {

/** A field of a record. */
struct Field {
    uint32_t fid;
    Bytes value;

    bool operator==(const Field &) const = default;
};

/** A record. The same field may occur more than once; the library then sees the first. */
struct Record {
    uint32_t cid;
    std::vector<Field> fields;
    uint32_t offset = 0;  // of the record's TLV in its file; 0 when it comes from elsewhere

    /** The first field of an id, or null. */
    const Field *Find(uint32_t fid) const;
};

/** A virtual system. */
struct Vs {
    uint32_t id;
    std::vector<Record> records;
};

/** A file's content. */
using Model = std::vector<Vs>;

/** Names a record for people: "VS 0 class 13 14=5". */
std::string Describe(uint32_t vsId, const Record &record);

/** Checks what the library demands of records, one by one and among each other. */
class RecordCheck {
  public:
    /** Throws Problem when the record is empty, lacks a key field, has an over-long value, or its key was seen before.
     */
    void Pass(uint32_t vsId, const Record &record);

  private:
    std::unordered_set<Bytes> seen_;
};

}  // namespace tavcfg

#endif
