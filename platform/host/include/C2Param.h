// Codec2 parameters: a record of uint32 size, uint32 index, then the value bytes. Vendor
// parameters are written as subclasses that add their value fields after the 8-byte header.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

#include <C2.h>

class C2Param {
  public:
    // The 32-bit parameter index: kind, direction, stream and core index bits.
    struct Index {
        constexpr Index(uint32_t index) : mIndex(index) {}
        constexpr operator uint32_t() const { return mIndex; }

      private:
        uint32_t mIndex;
    };
    using Type = Index;

    constexpr size_t size() const { return mSize; }
    constexpr Index index() const { return Index(mIndex); }
    constexpr Type type() const { return Type(mIndex); }
    constexpr uint32_t coreIndex() const { return mIndex & 0xFFFF; }
    bool operator!() const { return mSize == 0; }

    // Records may be plain byte blocks (a record made by the component): always released with
    // the global allocator that made them.
    static void operator delete(void* p) { ::operator delete(p); }

  protected:
    constexpr C2Param(uint32_t paramSize, Index paramIndex)
        : mSize(paramSize), mIndex(paramIndex) {}

  private:
    uint32_t mSize;
    uint32_t mIndex;
};

// Read-only information attached to buffers and works.
class C2Info : public C2Param {
  protected:
    using C2Param::C2Param;
};

class C2Setting : public C2Param {
  protected:
    using C2Param::C2Param;
};

class C2Tuning : public C2Setting {
  protected:
    using C2Setting::C2Setting;
};

struct C2SettingResult {
    int failure = 0;
};
