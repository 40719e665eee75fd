// Codec2 buffers, reduced to what the plug-in touches: the info records attached to a buffer.
#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include <C2Param.h>

class C2Buffer {
  public:
    C2Buffer() = default;

    // The attached info record whose index equals `index`, or null.
    std::shared_ptr<const C2Info> getInfo(C2Param::Type index) const;
    // Attaches a record, replacing one with the same index.
    c2_status_t setInfo(const std::shared_ptr<C2Info>& info);
    bool hasInfo(C2Param::Type index) const { return getInfo(index) != nullptr; }
    std::vector<std::shared_ptr<const C2Info>> info() const;

  private:
    std::vector<std::shared_ptr<const C2Info>> mInfos;
};
