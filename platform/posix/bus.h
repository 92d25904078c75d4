/*
 * The folder of the bus and what its files are called:
 *
 *   <id>                      socket of a component
 *   <id>.lock                 held by the process that has bound the component; its owner is the component's. It stays
 *                             when the component goes, so that nobody locks a file that another process is just about
 *                             to delete, and so that a message is still known as its owner's
 *   <id>.new                  an announcement of this component on its way to its name
 *   <id>.old                  an announcement that this component is withdrawing
 *   <component>.<vr>.<vsId>   an announcement: a symbolic link that reads the id of the component that serves the VS
 */
#ifndef PLATFORM_POSIX_BUS_H
#define PLATFORM_POSIX_BUS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <mutex>

#include "descriptor.h"

/** Bytes of a socket's path, and of a component id's text, each with its terminator. */
constexpr size_t kSocketPathSize = sizeof(sockaddr_un::sun_path);
constexpr size_t kIdTextSize = sizeof "4294967295";

/** Path of the folder, with a slash at its end; short enough that every component's socket has a path that fits. */
struct BusFolder {
    char path[kSocketPathSize - kIdTextSize + 1];
};

/** Path of a file in the folder. */
struct BusPath {
    char text[sizeof(BusFolder) + 3 * kIdTextSize];
};

/** A component id in decimal digits: the name of its socket and the text of its announcements. */
struct BusIdText {
    char text[kIdTextSize];
};

/** Finds the folder of the bus. Returns 0; ENAMETOOLONG; or EINVAL for a relative path. */
uint32_t FindBusFolder(BusFolder *folder);

BusIdText IdText(uint32_t componentId);

BusPath SocketPath(const BusFolder &folder, uint32_t componentId);

/** Path of one of the files beside a component's socket. */
BusPath SidePath(const BusFolder &folder, uint32_t componentId, const char *suffix);

BusPath AnnouncementPath(const BusFolder &folder, uint32_t component, uint32_t vr, uint32_t vsId);

/**
 * Tells whether a user id stands for one user. That of this process does, whichever it is; the one that the kernel
 * shows for all that it cannot tell does not.
 */
bool IsSomebody(uid_t user);

/**
 * Opens a file for a look at it: the name itself, never what a link leads to.
 *
 * @param path    its path
 * @param status  where its status goes
 * @return the file; none, with errno set, when that fails
 */
Descriptor OpenItself(const BusPath &path, struct stat *status);

/** A bound component. */
struct TAV_Posix_BusPort {
    BusFolder folder;               // where it is bound, whatever the environment says later
    uint32_t componentId;           // its id
    Descriptor lock;                // the lock file, held as long as this lives
    Descriptor socket;              // where its datagrams come in
    std::mutex taking;              // held between the look at a datagram's length and its receipt
    mutable std::mutex announcing;  // held while <id>.new is in use
};

/** Announces that a port serves a VS, in place of an earlier announcement. Returns 0, else an errno code. */
uint32_t Announce(const TAV_Posix_BusPort &port, uint32_t component, uint32_t vr, uint32_t vsId);

/** Withdraws all announcements that name the port's component. */
void WithdrawAnnouncements(const TAV_Posix_BusPort &port);

#endif
