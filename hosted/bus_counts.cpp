#include "bus_counts.h"

#include "interfaces.h"
#include "message.h"

namespace hosted {

constinit BusCounters busCounters;

}  // namespace hosted

using hosted::busCounters;

void TAV_Posix_BusAccount(TAV_Posix_BusCounts *counts) {
    *counts = {hosted::LiveMessages(), busCounters.sent.Get(), busCounters.sendFailures.Get(),
               busCounters.received.Get(), busCounters.refused.Get()};
}
