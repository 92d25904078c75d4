/*
 * The content of a store as JSON, in two forms. As a tree,
 *
 *   {"vs":[{"id":0,"records":[{"class":13,"fields":[[14,5],[15,1]]}]}]}
 *
 * or as lines, a record each, and an empty virtual system as {"vs":3}:
 *
 *   {"vs":0,"class":13,"fields":[[14,5],[15,1]]}
 *
 * Integers are numbers; texts, addresses and times are strings; all other values, and those that would not come back
 * the same, are {"hex":"..."} with their bytes in the order of the file. Names (tav/names.h) may stand for classes and
 * fields.
 */
#ifndef TAV_JSON_H
#define TAV_JSON_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tav/change.h"
#include "tav/error.h"
#include "tav/names.h"
#include "tav/store.h"

namespace tav {

/** The forms of JSON. */
enum class JsonForm : uint8_t {
    kTree, /**< one text, records within virtual systems */
    kLines /**< a line for each record */
};

/** Takes a piece of a text. What it throws goes to whoever has the text written. */
using TextSink = std::function<void(std::string_view)>;

/** Writes virtual systems and records, one after the other, in bounded memory. */
class TAV_VISIBLE JsonWriter {
  public:
    /** Begins a text of a form, which goes to the sink; with names, they stand in it instead of numbers. */
    JsonWriter(JsonForm form, TextSink sink, Names names = {});

    /** Begins a virtual system, which ends the one before it. */
    void BeginVs(uint32_t vsId);

    /** Writes a record of the virtual system. */
    void Add(RecordView record);

    /** Ends the text; to be called once, at last. */
    void End();

  private:
    void EndVs();

    JsonForm form_;
    TextSink sink_;
    Names names_;
    std::string text_;  // what the sink has not had yet
    uint32_t vsId_ = 0;
    size_t vsCount_ = 0;
    size_t recordCount_ = 0;  // of the virtual system
};

/** Writes all of a store. */
TAV_VISIBLE void WriteJson(const Store &store, JsonForm form, const TextSink &sink, const Names &names = {});

/**
 * Adds all that a text holds to a store, reading it once without building a tree.
 *
 * @param text   the JSON text
 * @param form   its form
 * @param store  takes the records; keeps those that it has been given when the text is refused later on
 * @param names  what names the text may use
 * @return the number of records. Throws Error (TAV_ERR_INVALID) with the place (vs[0].records[3].fields[1], or the
 *         line) for what is no JSON or out of shape, for a value that does not suit its field, a record without its key
 *         field or without any, a record whose key the store has already, and, in a tree, for no or a repeated virtual
 *         system
 */
TAV_VISIBLE size_t ReadJson(std::string_view text, JsonForm form, Store *store, const Names &names = {});

/** The JSON form of a value. */
TAV_VISIBLE std::string ValueToJson(FieldView field);

/** A record as one line of the form of lines, without a line feed. */
TAV_VISIBLE std::string RecordToJson(uint32_t vsId, RecordView record, const Names &names = {});

/**
 * Writes a change as one line of JSON, without a line feed:
 * {"verb":"unset","vs":0,"class":13,"fields":[[14,5]],"unset":[18]}; without a class for a virtual system.
 */
TAV_VISIBLE std::string ChangeToJson(const Change &change, const Names &names = {});

}  // namespace tav

#endif
