/*
 * The script form of changes, one a line:
 *
 *   # a comment, up to the end of the line
 *   set 0 13 14=5 18=192.0.2.1     overwrites fields of the record of class 13 whose key field 14 is 5, in VS 0
 *   add 0 7 8=ssh/tcp 12="two words"
 *   unset 0 13 14=5 18 19          takes fields out
 *   del 0 7 8=ssh/tcp
 *   add 3                          adds an empty virtual system
 *   del 3                          deletes one, which must be empty
 *
 * Values are written as tav/values.h says. Blanks and tabs part words; in double quotes they, and #, stand for
 * themselves, and \" and \\ for a quote and a backslash. Names (tav/names.h) may stand for classes and fields.
 */
#ifndef TAV_SCRIPT_H
#define TAV_SCRIPT_H

#include <string>
#include <string_view>

#include "tav/change.h"
#include "tav/error.h"
#include "tav/names.h"

namespace tav {

/**
 * Reads a script. Lines may end with a carriage return as well.
 *
 * @param text   the script
 * @param names  what names it may use
 * @return the changes with their lines. Throws Error (TAV_ERR_INVALID) with the line as its place: an unknown verb,
 *         class or field, a value that does not suit its field, a key field that is missing, a quote that is left open
 */
TAV_VISIBLE Changes ParseScript(std::string_view text, const Names &names = {});

/** Writes a change as a line of a script, without a line feed. ParseScript gives back the same change. */
TAV_VISIBLE std::string WriteChange(const Change &change, const Names &names = {});

/** A value, as FormatValue shows it, for a script: in double quotes where it must be. */
TAV_VISIBLE std::string Quoted(const std::string &text);

}  // namespace tav

#endif
