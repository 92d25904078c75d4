/*
 * A component that this process has bound.
 *
 * One process at a time holds a component. There is no list of holders that could be out of date: whoever wants to bind
 * one listens on the subject of its claims and asks there whether anybody else does. Servers say at once when nobody
 * does, and forget who listens with their connection, however it ends. So a component is free when twice, a moment
 * apart, nobody else listens: of two that begin in the same moment, at two servers of a cluster, at least one hears of
 * the other by then. A holder answers that it holds; of two that claim, the one of lower rank gives way. Who listens
 * but does not answer in time, because it is stopped or cut off, holds the component all the same.
 */
#ifndef FLEET_BUS_COMPONENT_H
#define FLEET_BUS_COMPONENT_H

#include <cstdint>

#include <memory>
#include <mutex>
#include <string>

#include "fleet/bus_connection.h"
#include "fleet/bus_subjects.h"
#include "hosted/bus_transport.h"

namespace fleet {

class BoundComponent : public std::enable_shared_from_this<BoundComponent> {
  public:
    BoundComponent(BusConnection &connection, ComponentName component, const hosted::BusHost &host,
                   TAV_Posix_BusPort *port);

    const ComponentName &Name() const { return component_; }

    /** Claims the component and lets its messages come. Returns 0; EADDRINUSE; EACCES; else an errno code. */
    uint32_t Open();

    /** Lets nothing more come; the port is not used any more. */
    void Close();

    /** Returns whether messages come in. */
    bool Holds();

    /** Puts a message of this process to the others. Returns 0; EAGAIN; ENOMEM; ENOENT. */
    uint32_t Deliver(const hosted::Envelope &envelope, const void *content, uint32_t length);

    /** The connection is away: somebody else may bind the component now. */
    void Suspend();

    /** What has come of claiming a component again. */
    enum class Resumed {
        kDone,    // it is held, or the connection is away again
        kLost,    // somebody else has bound it; receiving says so from now on
        kSilent,  // somebody does not answer: to be tried again
    };

    /** The connection is back: claims the component again. */
    Resumed Resume();

    /** The connection is gone for good: receiving says so from now on. */
    void GiveUp();

  private:
    enum class State { kClaiming, kHeld, kLost };

    uint32_t Claim(int mostSilent);
    uint32_t AskClaimants();
    void Listen(Subscription *subscription, const std::string &subject, const std::string &queue,
                void (BoundComponent::*handler)(const natsMsg *));
    void OnClaim(const natsMsg *claim);
    void OnMessage(const natsMsg *message);
    std::string Rank() const;
    bool IsLost();
    void Lose(uint32_t code);

    BusConnection &connection_;
    const ComponentName component_;
    const hosted::BusHost &host_;
    const std::string name_;  // of this claimant, like no other one's
    std::mutex mutex_;        // held while what follows is in use, never while an answer is waited for
    TAV_Posix_BusPort *port_;
    State state_ = State::kClaiming;
    bool hasHeld_ = false;
    Subscription claims_, messages_;
};

}  // namespace fleet

#endif
