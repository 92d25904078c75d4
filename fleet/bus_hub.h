/*
 * All that this process has on the bus of some servers: one connection, the components bound, the services announced.
 */
#ifndef FLEET_BUS_HUB_H
#define FLEET_BUS_HUB_H

#include <cstdint>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fleet/bus_component.h"
#include "fleet/bus_connection.h"
#include "fleet/bus_services.h"

namespace fleet {

class BusHub {
  public:
    /**
     * Returns the hub of the servers that the environment names, connected when it was not. It lives as long as the
     * process. Throws Refusal; for half a second after a failure at once. CheckProcess comes first.
     */
    static BusHub &Get();

    /** Throws Refusal in a process that was forked from one that has a hub: the client library has no threads there. */
    static void CheckProcess();

    /** Connects. Throws Refusal. */
    explicit BusHub(const Access &access);

    /** Binds a component. Returns 0 and what stands for it, else an errno code. */
    uint32_t Bind(const ComponentName &component, const hosted::BusHost &host, TAV_Posix_BusPort *port,
                  std::shared_ptr<BoundComponent> *binding);

    /** Unbinds it, and withdraws what it serves. */
    void Unbind(BoundComponent *binding);

    /** Sends a message. Returns 0, else an errno code. */
    uint32_t Send(const std::string &prefix, const hosted::Envelope &envelope, const void *content, uint32_t length);

    BusServices &Services() { return services_; }

  private:
    /** What was sent to in vain, with the code that sending there gives until when. */
    struct Pause {
        uint32_t code;
        std::chrono::steady_clock::time_point end;
    };

    ConnectionEvents Events();
    bool HasResumed(BoundComponent &binding);
    std::shared_ptr<BoundComponent> Find(const ComponentName &component);
    std::vector<std::shared_ptr<BoundComponent>> Bindings();
    uint32_t CodeOfPause(const std::string &subject);

    BusConnection connection_;
    BusServices services_;
    std::mutex mutex_;  // held while the next two are in use
    std::map<ComponentName, std::shared_ptr<BoundComponent>> bindings_;
    std::map<std::string, Pause> pauses_;
};

}  // namespace fleet

#endif
