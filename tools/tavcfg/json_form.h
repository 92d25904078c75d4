/*
 * The JSON form of a file's content:
 *
 *   {"vs":[{"id":0,"records":[{"class":13,"fields":[[14,5],[15,1]]}]}]}
 */
#ifndef TAVCFG_JSON_FORM_H
#define TAVCFG_JSON_FORM_H

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "model.h"

namespace tavcfg {

/** Prints content on standard output, a record a line. */
void PrintJson(const Model &model);

/** Reads JSON text. Throws Problem that names the position; also when an object holds a name twice. */
nlohmann::json ParseJson(const std::string &text);

/** Counts the records of a JSON form, as far as it has the right shape. */
size_t CountRecords(const nlohmann::json &form);

/** Takes over what a JSON form holds, in its order. */
struct JsonTaker {
    std::function<void(uint32_t vsId)> vs;
    std::function<void(uint32_t vsId, const Record &record)> record;
};

/**
 * Walks the JSON form of a file's content and hands on every VS and record. Throws Problem that names the path
 * (vs[0].records[3].fields[1]) for everything that is out of shape or that the taker refuses with a Problem.
 */
void TakeJson(const nlohmann::json &form, const JsonTaker &taker);

}  // namespace tavcfg

#endif
