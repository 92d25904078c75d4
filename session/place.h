/*
 * Where a file really is, and the names of what sessions keep beside it.
 */
#ifndef SESSION_PLACE_H
#define SESSION_PLACE_H

#include <string>

namespace session {

/** A configuration file after its links have been followed. It need not be there; its folder is. */
struct Place {
    std::string given;   // as the caller names it, for messages
    std::string folder;  // absolute, without links
    std::string name;
    bool anyMember = false;  // as an archive it may hold a member of another name, as a renamed one does

    std::string Path() const { return Beside(name); }
    std::string Backup() const { return Path() + ".bak"; }
    std::string LockFile() const { return Hidden(".lock"); }
    std::string DraftFolder() const { return Hidden(".draft"); }
    std::string Draft() const { return DraftFolder() + "/" + name; }
    std::string History() const { return Hidden(".history"); }

    bool IsArchive() const { return name.size() > 4 && name.ends_with(".zip"); }

    /** The name of the only member that the product reads of an archive. */
    std::string Member() const { return name + ".dat"; }

  private:
    std::string Beside(const std::string &other) const { return folder + (folder == "/" ? "" : "/") + other; }
    std::string Hidden(const char *suffix) const { return Beside("." + name + suffix); }
};

/** Throws Error (TAV_ERR_INVALID) for a name with a zero byte in it. */
void RequireNoZero(const std::string &path);

/**
 * Finds the real place of a file. Throws Error: TAV_ERR_INVALID for an empty name, one with a zero byte, and one that
 * gets too long for the product; TAV_ERR_OPEN when its folder is not there or cannot be entered, or links go in a
 * circle.
 */
Place Resolve(const std::string &given);

}  // namespace session

#endif
