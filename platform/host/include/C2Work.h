// Codec2 work items: an input frame, the worklets the component filled, and their output.
#pragma once

#include <stdint.h>

#include <list>
#include <memory>
#include <vector>

#include <C2.h>
#include <C2Buffer.h>
#include <C2Param.h>

struct C2WorkOrdinalStruct {
    c2_cntr64_t timestamp;
    c2_cntr64_t frameIndex;
    c2_cntr64_t customOrdinal;
};

struct C2FrameData {
    enum flags_t : uint32_t {
        FLAG_DROP_FRAME = (1 << 0),
        FLAG_END_OF_STREAM = (1 << 1),
        FLAG_DISCARD_FRAME = (1 << 2),
        FLAG_INCOMPLETE = (1 << 3),
        FLAG_CORRECTED = (1 << 4),
        FLAG_CODEC_CONFIG = (1u << 31),
    };

    flags_t flags = flags_t(0);
    C2WorkOrdinalStruct ordinal;
    std::vector<std::shared_ptr<C2Buffer>> buffers;
    std::vector<std::unique_ptr<C2Param>> configUpdate;
};

struct C2Worklet {
    uint32_t component = 0;
    std::vector<std::unique_ptr<C2Tuning>> tunings;
    std::vector<std::unique_ptr<C2SettingResult>> failures;
    C2FrameData output;
};

struct C2Work {
    C2FrameData input;
    std::list<std::unique_ptr<C2Worklet>> worklets;
    uint32_t workletsProcessed = 0;
    c2_status_t result = C2_OK;
};
