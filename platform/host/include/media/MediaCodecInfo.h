// What the framework knows about one codec; the plug-in reads only its name.
#pragma once

#include <media/stagefright/foundation/AString.h>
#include <utils/RefBase.h>

namespace android {

struct MediaCodecInfo : public RefBase {
    explicit MediaCodecInfo(const char* name) : mName(name ? name : "") {}
    const char* getCodecName() const { return mName.c_str(); }

  private:
    AString mName;
};

}  // namespace android
