/*
 * Real data to fill a store with: the services database, and the addresses and routes of this machine.
 */
#ifndef EXAMPLES_MACHINE_DATA_H
#define EXAMPLES_MACHINE_DATA_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/** One line of the services database. */
struct Service {
    std::string name;   // "name/protocol", for example "ssh/tcp"
    uint16_t port;      // port number
    std::string notes;  // aliases and comment as they stand in the line; may be empty
};

/** The platform's address value: family, IPv4 word in host order, IPv6 bytes, without padding. */
using AddressValue = std::array<uint8_t, 21>;

/** One address or route of this machine. */
struct NetworkEntry {
    bool isRoute;             // a route's destination, or else an interface's own address
    AddressValue address;     // the address
    uint32_t interfaceIndex;  // index of the interface
    uint16_t prefixLength;    // bits of the network part
    uint16_t metric;          // metric of a route, at most 65535
};

/** Reads the services database, /etc/services, line by line. */
std::vector<Service> ReadServices();

/** Lists the addresses of this machine's interfaces and the destinations of its routes. */
std::vector<NetworkEntry> ReadNetwork();

#endif
