/*
 * What the bus's subjects are called. PREFIX is what TAV_BUS_PREFIX says.
 *
 *   PREFIX.m.<sender>.<receiver>        a message from one component to another
 *   PREFIX.b.<component>                the claims of who wants to bind a component
 *   PREFIX.s.<kind>.<vr>.<vsId>.ask     the question who serves a VS
 *   PREFIX.s.<kind>.<vr>.<vsId>.new     the news that somebody does
 *
 * Servers can say by these who may send as whom, and who may bind and serve what (docs/fleet.md).
 */
#ifndef FLEET_BUS_SUBJECTS_H
#define FLEET_BUS_SUBJECTS_H

#include <cstdint>

#include <string>
#include <string_view>

namespace fleet {

/** A component on the bus of one prefix. */
struct ComponentName {
    std::string prefix;
    uint32_t id;

    auto operator<=>(const ComponentName &) const = default;
};

/** Returns the prefix that the environment sets. Throws Refusal for one that is no subject. */
std::string BusPrefix();

std::string MessageSubject(const std::string &prefix, uint32_t sender, uint32_t receiver);

/** The subject of all messages to a component. */
std::string MessagesTo(const ComponentName &component);

/** Returns the sender that a message's subject names; 0 when it names none. */
uint32_t SenderIn(std::string_view subject);

std::string ClaimSubject(const ComponentName &component);

/** A virtual system's service: its subjects without their last words. */
std::string ServiceSubject(const std::string &prefix, uint32_t kind, uint32_t vr, uint32_t vsId);
std::string AskSubject(const std::string &service);
std::string NewsSubject(const std::string &service);

}  // namespace fleet

#endif
