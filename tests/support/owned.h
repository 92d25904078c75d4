/*
 * Records, stores and blocks of the library that are released when their owner goes. Not tav::Record and tav::Store,
 * which throw where a call fails: tests look at just that, at null and at result codes, and at what is left then.
 */
#ifndef TAV_TESTS_OWNED_H
#define TAV_TESTS_OWNED_H

#include <memory>

#include "platform/mel_memory.h"
#include "tav_extcfg.h"

struct Release {
    void operator()(TAV_ExtCfgRecordNode *record) const { TAV_ExtCfgRecordNodeFree(record); }
    void operator()(CfgLocal *local) const { TAV_ExtCfgClose(local); }
    void operator()(uint8_t *block) const { MEL_Free_F(block, "tests", 0); }
};
using Record = std::unique_ptr<TAV_ExtCfgRecordNode, Release>;
using Store = std::unique_ptr<CfgLocal, Release>;
using Block = std::unique_ptr<uint8_t, Release>;

#endif
