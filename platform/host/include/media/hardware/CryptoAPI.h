// Crypto descriptions passed with secure input buffers (forwarded untouched by the plug-in).
#pragma once

#include <stdint.h>

namespace android {

struct CryptoPlugin {
    enum Mode { kMode_Unencrypted = 0, kMode_AES_CTR = 1, kMode_AES_WV = 2, kMode_AES_CBC = 3 };
    struct Pattern {
        uint32_t mEncryptBlocks;
        uint32_t mSkipBlocks;
    };
    struct SubSample {
        uint32_t mNumBytesOfClearData;
        uint32_t mNumBytesOfEncryptedData;
    };
};

}  // namespace android
