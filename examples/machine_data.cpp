#include "machine_data.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

constexpr uint8_t kFamilyIpv4 = 4;
constexpr uint8_t kFamilyIpv6 = 6;
constexpr size_t kIpv4Offset = 1;
constexpr size_t kIpv6Offset = 5;

AddressValue FromIpv4(in_addr address) {
    AddressValue value = {kFamilyIpv4};
    const uint32_t word = ntohl(address.s_addr);  // a stored word is in host order
    memcpy(&value[kIpv4Offset], &word, sizeof(word));
    return value;
}

AddressValue FromIpv6(const in6_addr &address) {
    AddressValue value = {kFamilyIpv6};
    memcpy(&value[kIpv6Offset], &address, sizeof(address));
    return value;
}

uint16_t CountOnes(const void *mask, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(mask);
    unsigned ones = 0;
    for (size_t i = 0; i < size; ++i) {
        ones += static_cast<unsigned>(__builtin_popcount(bytes[i]));
    }
    return static_cast<uint16_t>(ones);
}

uint16_t CutTo16(uint32_t number) {
    return static_cast<uint16_t>(std::min<uint32_t>(number, UINT16_MAX));
}

/** One interface's address, when it is of a family that the store knows. */
void AddInterfaceAddress(const ifaddrs &entry, std::vector<NetworkEntry> &entries) {
    if (entry.ifa_addr == nullptr || entry.ifa_netmask == nullptr) {
        return;
    }
    const uint32_t index = if_nametoindex(entry.ifa_name);
    if (entry.ifa_addr->sa_family == AF_INET) {
        sockaddr_in address;
        sockaddr_in mask;
        memcpy(&address, entry.ifa_addr, sizeof(address));
        memcpy(&mask, entry.ifa_netmask, sizeof(mask));
        entries.push_back({false, FromIpv4(address.sin_addr), index, CountOnes(&mask.sin_addr, 4), 0});
    } else if (entry.ifa_addr->sa_family == AF_INET6) {
        sockaddr_in6 address;
        sockaddr_in6 mask;
        memcpy(&address, entry.ifa_addr, sizeof(address));
        memcpy(&mask, entry.ifa_netmask, sizeof(mask));
        entries.push_back({false, FromIpv6(address.sin6_addr), index, CountOnes(&mask.sin6_addr, 16), 0});
    }
}

/** The IPv4 routes. The kernel prints addresses as words in network order. */
void AddIpv4Routes(std::vector<NetworkEntry> &entries) {
    std::ifstream routes("/proc/net/route");
    std::string line;
    std::getline(routes, line);  // headings
    while (std::getline(routes, line)) {
        std::istringstream fields(line);
        std::string interface, gateway, flags, references, use;
        in_addr destination = {};
        in_addr mask = {};
        uint32_t metric = 0;
        fields >> interface >> std::hex >> destination.s_addr >> gateway >> flags >> references >> use >> std::dec >>
            metric >> std::hex >> mask.s_addr;
        if (fields) {
            entries.push_back({true, FromIpv4(destination), if_nametoindex(interface.c_str()),
                               CountOnes(&mask, sizeof(mask)), CutTo16(metric)});
        }
    }
}

/** The IPv6 routes. The kernel prints addresses as 32 hexadecimal digits, and no heading. */
void AddIpv6Routes(std::vector<NetworkEntry> &entries) {
    std::ifstream routes("/proc/net/ipv6_route");
    std::string line;
    while (std::getline(routes, line)) {
        std::istringstream fields(line);
        std::string destination, source, sourceLength, gateway, references, use, flags, interface;
        uint32_t prefixLength = 0;
        uint32_t metric = 0;
        fields >> destination >> std::hex >> prefixLength >> source >> sourceLength >> gateway >> metric >>
            references >> use >> flags >> interface;
        if (!fields || destination.size() != 32) {
            continue;
        }
        in6_addr address;
        for (size_t i = 0; i < sizeof(address); ++i) {
            address.s6_addr[i] = static_cast<uint8_t>(std::stoul(destination.substr(2 * i, 2), nullptr, 16));
        }
        entries.push_back(
            {true, FromIpv6(address), if_nametoindex(interface.c_str()), CutTo16(prefixLength), CutTo16(metric)});
    }
}

}  // namespace

std::vector<Service> ReadServices() {
    std::vector<Service> services;
    std::ifstream file("/etc/services");
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        Service service;
        std::string name, protocol;
        char slash = 0;
        if (!(fields >> name) || name.front() == '#' || !(fields >> service.port >> slash >> protocol)) {
            continue;
        }
        service.name = name + "/" + protocol;
        std::getline(fields >> std::ws, service.notes);
        services.push_back(service);
    }
    return services;
}

std::vector<NetworkEntry> ReadNetwork() {
    std::vector<NetworkEntry> entries;
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) == 0) {
        for (const ifaddrs *entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
            AddInterfaceAddress(*entry, entries);
        }
        freeifaddrs(interfaces);
    }
    AddIpv4Routes(entries);
    AddIpv6Routes(entries);
    return entries;
}
