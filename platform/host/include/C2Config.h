// Codec2 configuration records used by name in the plug-in's interfaces.
#pragma once

#include <C2Param.h>

// Codec-specific initialisation data of an output stream (passed through untouched).
struct C2StreamInitDataInfo {
    class output : public C2Info {
      public:
        output() : C2Info(sizeof(output), 0xD2010000u | 0x2010u) {}
    };
};
