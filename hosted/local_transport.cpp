/*
 * The bus of this machine, put together.
 */
#include "local_transport.h"

#include "announcements.h"
#include "local_port.h"
#include "local_receive.h"
#include "local_send.h"

namespace hosted {

namespace {

uint32_t Serve(BusBinding *binding, uint32_t component, uint32_t vr, uint32_t vsId) {
    const auto *const port = static_cast<LocalPort *>(binding);
    return Announce(port->folder, port->componentId, component, vr, vsId);
}

}  // namespace

const BusTransport kLocalTransport = {BindLocalPort, UnbindLocalPort, FetchLocally, Serve, SendLocally, FindAnnounced};

}  // namespace hosted
