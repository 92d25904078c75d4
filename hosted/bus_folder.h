/*
 * The folder of the bus, and what its files are called:
 *
 *   <id>                      socket of a component
 *   <id>.lock                 held by the process that has bound the component; its owner is the component's. It stays
 *                             when the component goes, so that nobody locks a file that another process is just about
 *                             to delete, and so that a message is still known as its owner's
 *   <id>.<random>.tmp         an announcement of this component on its way in or out
 *   <component>.<vr>.<vsId>   an announcement: a symbolic link that reads the id of the component that serves the VS
 */
#ifndef HOSTED_BUS_FOLDER_H
#define HOSTED_BUS_FOLDER_H

#include <sys/stat.h>
#include <sys/un.h>
#include <cstddef>
#include <cstdint>

#include "descriptor.h"

namespace hosted {

/** Bytes of a socket's path, and of a component id's text, each with its terminator. */
inline constexpr size_t kSocketPathSize = sizeof(sockaddr_un::sun_path);
inline constexpr size_t kIdTextSize = sizeof("4294967295");

/** Path of the folder, with a slash at its end; short enough that every component's socket has a path that fits. */
struct BusFolder {
    char path[kSocketPathSize - kIdTextSize + 1];
};

/** Bytes of the name of an announcement that is on its way, with its terminator. */
inline constexpr size_t kSideNameSize = kIdTextSize + sizeof(".0123456789abcdef.tmp") - 1;

/** Path of a file in the folder. */
struct BusPath {
    char text[sizeof(BusFolder) + 3 * kIdTextSize];
};

/** A component id in decimal digits: the name of its socket and the text of its announcements. */
struct BusIdText {
    char text[kIdTextSize];
};

/** Finds the path of the bus's folder. Returns 0; ENAMETOOLONG; or EINVAL for a relative path. */
uint32_t FindBusFolder(BusFolder *folder);

/**
 * Checks that nobody but this process's user, root, and whom one of these put in charge of the folder, rules over the
 * names in it. Returns 0; EACCES; else the system's code.
 */
uint32_t CheckBusFolder(const BusFolder &folder);

/** Finds the path of the bus's folder, which must pass CheckBusFolder. Returns 0, else the code of either. */
uint32_t FindSafeBusFolder(BusFolder *folder);

BusIdText IdText(uint32_t componentId);

BusPath SocketPath(const BusFolder &folder, uint32_t componentId);

/** Path of the lock file beside a component's socket. */
BusPath LockPath(const BusFolder &folder, uint32_t componentId);

BusPath AnnouncementPath(const BusFolder &folder, uint32_t component, uint32_t vr, uint32_t vsId);

/** The address of the socket at a path, which must fit. */
sockaddr_un AddressOf(const char *path);

/**
 * Opens a file for a look at it: the name itself, never what a link leads to.
 *
 * @param path    its path
 * @param status  where its status goes
 * @return the file; not open, with errno set, when that fails
 */
Descriptor OpenItself(const BusPath &path, struct stat *status);

/**
 * Returns whether a component is a user's: whether that user owns its lock file, which stays when the component is
 * unbound. A component without one was never bound; it is this process's own user's, and root's.
 */
bool IsOwner(const BusFolder &folder, uint32_t componentId, uid_t user);

/**
 * Returns whether a user's announcements count: this process's own user, root, and the owner of the folder, who rules
 * over the names in it. Other users who may bind components here may not draw a VS's messages to themselves.
 */
bool IsTrusted(const BusFolder &folder, uid_t user);

}  // namespace hosted

#endif
