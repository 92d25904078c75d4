/*
 * Names of classes and fields, which a JSON file gives:
 *
 *   {"13": {"name": "route", "fields": {"14": "id", "18": "address"}}}
 *
 * Wherever people write the number of a class or a field, its name may stand as well. A name begins with a letter or an
 * underscore and goes on with these, digits and hyphens. The names of classes differ from each other, and so do those
 * of a class's fields; a field may have another name in another class.
 */
#ifndef TAV_NAMES_H
#define TAV_NAMES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tav/error.h"

namespace tav {

/** Names of classes and fields; as long as it is empty, numbers stand for themselves. */
class TAV_VISIBLE Names {
  public:
    /** Reads a file of names. Throws Error (TAV_ERR_READ, TAV_ERR_INVALID) that names the file and the place in it. */
    static Names Load(const std::string &path);

    /** Reads the text of such a file. Throws Error (TAV_ERR_INVALID) that names the source and the place. */
    static Names Parse(std::string_view text, const std::string &source);

    /** Whether nothing has a name. */
    bool IsEmpty() const { return classes_.empty() && fields_.empty(); }

    /** The name of a class; its number when it has none. */
    std::string ClassText(uint32_t cid) const;

    /** The name of a field of a class; its number when it has none. */
    std::string FieldText(uint32_t cid, uint32_t fid) const;

    /** The class of a name; nothing when the name is unknown. */
    std::optional<uint32_t> FindClass(std::string_view name) const;

    /** The field of a name in a class; nothing when the name is unknown there. */
    std::optional<uint32_t> FindField(uint32_t cid, std::string_view name) const;

    /** The class that a name or a number stands for. Throws Error (TAV_ERR_INVALID), without a place. */
    uint32_t ParseClass(std::string_view text) const;

    /** The field of a class that a name or a number stands for. Throws Error (TAV_ERR_INVALID), without a place. */
    uint32_t ParseField(uint32_t cid, std::string_view text) const;

    /** Names a class. Throws Error (TAV_ERR_INVALID), without a place, when the name is taken or is none. */
    void AddClass(uint32_t cid, const std::string &name);

    /** Names a field of a class. Throws Error (TAV_ERR_INVALID), without a place, when the name is taken or is none. */
    void AddField(uint32_t cid, uint32_t fid, const std::string &name);

  private:
    using Field = std::pair<uint32_t, uint32_t>;  // class and field
    std::map<uint32_t, std::string> classes_;
    std::map<Field, std::string> fields_;
    std::map<std::string, uint32_t, std::less<>> classByName_;
    std::map<uint32_t, std::map<std::string, uint32_t, std::less<>>> fieldByName_;  // by class
};

}  // namespace tav

#endif
