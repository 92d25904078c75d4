/*
 * Start-up of the product, for programs that have not done it themselves.
 */
#include "session/start.h"

#include <mutex>

#include "tav_extcfg.h"
#include "tav_posix.h"

void session::CompleteTypeTable() {
    static std::once_flag once;
    std::call_once(once, [] { TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType); });
}
