/*
 * Who serves a virtual system: each process answers for its own components. The last announcement counts: the news of
 * it make who served before withdraw.
 */
#ifndef FLEET_BUS_SERVICES_H
#define FLEET_BUS_SERVICES_H

#include <cstdint>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "fleet/bus_connection.h"
#include "fleet/bus_subjects.h"

namespace fleet {

/** An announcement; the greater one is the later one. */
struct Announcement {
    uint64_t moment = 0;  // milliseconds of the clock, or one more than that of the announcement before
    uint32_t componentId = 0;

    auto operator<=>(const Announcement &) const = default;
};

class BusServices {
  public:
    explicit BusServices(BusConnection &connection) : connection_(connection) {}

    /** Announces that a component serves a VS. Returns 0; EACCES; else an errno code, and it is not announced. */
    uint32_t Serve(const ComponentName &component, uint32_t kind, uint32_t vr, uint32_t vsId);

    /** Finds who serves a VS. Returns 0; ENOENT when nobody does; EINVAL for an answer that is none; else a code. */
    uint32_t Find(const std::string &service, uint32_t *componentId);

    /** Withdraws all that a component serves. */
    void Withdraw(const ComponentName &component);

    /** The connection is back: what has been announced elsewhere meanwhile counts. */
    void Renew();

  private:
    struct Service {
        ComponentName component;
        Announcement announcement;
        Subscription questions, news;
    };

    uint32_t FindMoment(const std::string &service, uint64_t *moment);
    uint32_t Announce(const std::string &service, const ComponentName &component, const Announcement &announcement);
    uint32_t TellOthers(const std::string &service, const Announcement &announcement);
    void Drop(const std::string &service, const Announcement &announcement);
    void OnQuestion(const std::string &service, const natsMsg *question);
    void OnNews(const std::string &service, const natsMsg *news);

    BusConnection &connection_;
    std::mutex mutex_;  // held while what follows is in use, never while an answer is waited for
    std::map<std::string, Service> services_;
};

}  // namespace fleet

#endif
