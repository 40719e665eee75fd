// AMessage: a typed key/value message, posted to an AHandler through its ALooper and used as the
// media framework's format and parameter container. Entries keep their insertion order; setting
// an existing name replaces its value and type in place.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class ABuffer;

class AMessage : public RefBase {
  public:
    enum Type {
        kTypeInt32,
        kTypeInt64,
        kTypeSize,
        kTypeFloat,
        kTypeDouble,
        kTypePointer,
        kTypeString,
        kTypeObject,
        kTypeMessage,
        kTypeRect,
        kTypeBuffer,
    };

    AMessage();
    AMessage(uint32_t what, const sp<const AHandler>& handler);

    void setWhat(uint32_t what) { mWhat = what; }
    uint32_t what() const { return mWhat; }

    // Posts go to `handler`'s looper (the handler must be registered by then); null clears it.
    void setTarget(const sp<const AHandler>& handler);

    // Removes every entry (what and target stay).
    void clear();

    // Setters: add the entry, or replace the value and type of an existing one in place.
    void setInt32(const char* name, int32_t value);
    void setInt64(const char* name, int64_t value);
    void setSize(const char* name, size_t value);
    void setFloat(const char* name, float value);
    void setDouble(const char* name, double value);
    void setPointer(const char* name, void* value);
    // `len` < 0 takes `s` up to its NUL; a null `s` stores "".
    void setString(const char* name, const char* s, ssize_t len = -1);
    void setString(const char* name, const AString& s);
    void setObject(const char* name, const sp<RefBase>& obj);
    void setBuffer(const char* name, const sp<ABuffer>& buffer);
    void setMessage(const char* name, const sp<AMessage>& obj);
    void setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom);

    bool contains(const char* name) const;

    // Finders: true and the value when `name` holds a value of exactly that type; false (output
    // untouched) when absent or of another type.
    bool findInt32(const char* name, int32_t* value) const;
    bool findInt64(const char* name, int64_t* value) const;
    bool findSize(const char* name, size_t* value) const;
    bool findFloat(const char* name, float* value) const;
    bool findDouble(const char* name, double* value) const;
    bool findPointer(const char* name, void** value) const;
    bool findString(const char* name, AString* value) const;
    bool findObject(const char* name, sp<RefBase>* obj) const;
    bool findBuffer(const char* name, sp<ABuffer>* buffer) const;
    bool findMessage(const char* name, sp<AMessage>* obj) const;
    bool findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                  int32_t* bottom) const;

    // Widening finders: int32 or int64; float, double, int32, int64 or size.
    bool findAsInt64(const char* name, int64_t* value) const;
    bool findAsFloat(const char* name, float* value) const;

    // Posts to the target's looper, due `delayUs` µs from now on the host clock (negative counts
    // as 0). -ENOENT (NAME_NOT_FOUND) when there is no target or its looper is gone. Any thread.
    status_t post(int64_t delayUs = 0);

    // A copy: values and sub-messages copied (sub-messages deeply), objects and buffers shared.
    // The copy has the same what and target.
    sp<AMessage> dup() const;
    // Copies every entry of `other` into this message (replacing same-named ones).
    void extend(const sp<AMessage>& other);
    // Entries of this message that `other` lacks or holds with another type or value; with
    // `deep`, sub-messages are compared entry by entry and only their changes kept.
    sp<AMessage> changesFrom(const sp<const AMessage>& other, bool deep = false) const;

    size_t countEntries() const { return mItems.size(); }
    // Name and type of entry `index` in insertion order; nullptr (and kTypeInt32) when out of
    // range.
    const char* getEntryNameAt(size_t index, Type* type) const;
    // Index of `name`, or -ENOENT.
    ssize_t findEntryByName(const char* name) const;
    status_t removeEntryAt(size_t index);          // BAD_INDEX when out of range
    status_t removeEntryByName(const char* name);  // BAD_INDEX when absent

    // Readable dump: "AMessage(what = 'cFps') = {\n  int32_t key = 1\n}" style, indented by
    // `indent` spaces for nested messages.
    AString debugString(int32_t indent = 0) const;

  protected:
    ~AMessage() override;

  private:
    friend class ALooper;

    struct Rect {
        int32_t mLeft, mTop, mRight, mBottom;
    };
    struct Item {
        std::string mName;
        Type mType = kTypeInt32;
        union {
            int32_t int32Value;
            int64_t int64Value;
            size_t sizeValue;
            float floatValue;
            double doubleValue;
            void* ptrValue;
            Rect rectValue;
        } u = {};
        AString mString;      // kTypeString
        sp<RefBase> mObject;  // kTypeObject, kTypeMessage, kTypeBuffer
    };

    Item* allocateItem(const char* name);
    const Item* findItem(const char* name, Type type) const;
    const Item* findItemAnyType(const char* name) const;
    static bool itemsEqual(const Item& a, const Item& b);

    // Runs on the looper's dispatch thread: hands the message to its handler when that is
    // alive and still registered under the target id; otherwise drops it with a warning.
    void deliver();

    uint32_t mWhat;
    ALooper::handler_id mTarget;
    wp<AHandler> mHandler;
    wp<ALooper> mLooper;
    std::vector<Item> mItems;
};

}  // namespace android
