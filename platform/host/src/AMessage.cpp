// AMessage: ordered typed entries, posting through the target's looper, replies.
#define LOG_TAG "AMessage"

#include <media/stagefright/foundation/AMessage.h>

#include <cctype>
#include <cinttypes>
#include <cstring>

#include <log/log.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>

namespace android {
namespace {

bool isFourcc(uint32_t what) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        if (!isprint(static_cast<int>((what >> shift) & 0xff))) return false;
    }
    return true;
}

void appendWhat(AString* s, uint32_t what) {
    if (isFourcc(what)) {
        s->append(AStringPrintf(
                "'%c%c%c%c'", static_cast<char>(what >> 24), static_cast<char>((what >> 16) & 0xff),
                static_cast<char>((what >> 8) & 0xff), static_cast<char>(what & 0xff)));
    } else {
        s->append(AStringPrintf("0x%08x", what));
    }
}

}  // namespace

AMessage::AMessage() : mWhat(0), mTarget(0) {}

AMessage::AMessage(uint32_t what, const sp<const AHandler>& handler) : mWhat(what), mTarget(0) {
    setTarget(handler);
}

AMessage::~AMessage() = default;

void AMessage::setTarget(const sp<const AHandler>& handler) {
    if (handler == nullptr) {
        mTarget = 0;
        mHandler.clear();
        mLooper.clear();
        return;
    }
    mTarget = handler->id();
    mHandler = handler->getHandler();
    mLooper = handler->getLooper();
}

void AMessage::clear() {
    mItems.clear();
}

namespace {

// Lengths first: a message's keys mostly differ in length, so most misses cost one compare.
bool sameName(const std::string& itemName, const char* key, size_t keyLength) {
    return itemName.size() == keyLength && memcmp(itemName.data(), key, keyLength) == 0;
}

}  // namespace

AMessage::Item* AMessage::allocateItem(const char* name) {
    const char* key = name != nullptr ? name : "";
    const size_t keyLength = strlen(key);
    for (Item& item : mItems) {
        if (sameName(item.mName, key, keyLength)) {
            // Replacing keeps the position; drop what the old value held.
            item.mString.clear();
            item.mObject.clear();
            item.u = {};
            return &item;
        }
    }
    mItems.emplace_back();
    mItems.back().mName = key;
    return &mItems.back();
}

const AMessage::Item* AMessage::findItemAnyType(const char* name) const {
    if (name == nullptr) return nullptr;
    const size_t nameLength = strlen(name);
    for (const Item& item : mItems) {
        if (sameName(item.mName, name, nameLength)) return &item;
    }
    return nullptr;
}

const AMessage::Item* AMessage::findItem(const char* name, Type type) const {
    const Item* item = findItemAnyType(name);
    return item != nullptr && item->mType == type ? item : nullptr;
}

void AMessage::setInt32(const char* name, int32_t value) {
    Item* item = allocateItem(name);
    item->mType = kTypeInt32;
    item->u.int32Value = value;
}

void AMessage::setInt64(const char* name, int64_t value) {
    Item* item = allocateItem(name);
    item->mType = kTypeInt64;
    item->u.int64Value = value;
}

void AMessage::setSize(const char* name, size_t value) {
    Item* item = allocateItem(name);
    item->mType = kTypeSize;
    item->u.sizeValue = value;
}

void AMessage::setFloat(const char* name, float value) {
    Item* item = allocateItem(name);
    item->mType = kTypeFloat;
    item->u.floatValue = value;
}

void AMessage::setDouble(const char* name, double value) {
    Item* item = allocateItem(name);
    item->mType = kTypeDouble;
    item->u.doubleValue = value;
}

void AMessage::setPointer(const char* name, void* value) {
    Item* item = allocateItem(name);
    item->mType = kTypePointer;
    item->u.ptrValue = value;
}

void AMessage::setString(const char* name, const char* s, ssize_t len) {
    // Copy first: `s` may point into this message's own value for `name`.
    AString value;
    if (s != nullptr) {
        value.setTo(s, len < 0 ? strlen(s) : static_cast<size_t>(len));
    }
    Item* item = allocateItem(name);
    item->mType = kTypeString;
    item->mString = value;
}

void AMessage::setString(const char* name, const AString& s) {
    AString value(s);
    Item* item = allocateItem(name);
    item->mType = kTypeString;
    item->mString = value;
}

void AMessage::setObject(const char* name, const sp<RefBase>& obj) {
    sp<RefBase> value(obj);
    Item* item = allocateItem(name);
    item->mType = kTypeObject;
    item->mObject = value;
}

void AMessage::setBuffer(const char* name, const sp<ABuffer>& buffer) {
    sp<RefBase> value(buffer);
    Item* item = allocateItem(name);
    item->mType = kTypeBuffer;
    item->mObject = value;
}

void AMessage::setMessage(const char* name, const sp<AMessage>& obj) {
    sp<RefBase> value(obj);
    Item* item = allocateItem(name);
    item->mType = kTypeMessage;
    item->mObject = value;
}

void AMessage::setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    Item* item = allocateItem(name);
    item->mType = kTypeRect;
    item->u.rectValue = {left, top, right, bottom};
}

bool AMessage::contains(const char* name) const {
    return findItemAnyType(name) != nullptr;
}

bool AMessage::findInt32(const char* name, int32_t* value) const {
    const Item* item = findItem(name, kTypeInt32);
    if (item == nullptr) return false;
    *value = item->u.int32Value;
    return true;
}

bool AMessage::findInt64(const char* name, int64_t* value) const {
    const Item* item = findItem(name, kTypeInt64);
    if (item == nullptr) return false;
    *value = item->u.int64Value;
    return true;
}

bool AMessage::findSize(const char* name, size_t* value) const {
    const Item* item = findItem(name, kTypeSize);
    if (item == nullptr) return false;
    *value = item->u.sizeValue;
    return true;
}

bool AMessage::findFloat(const char* name, float* value) const {
    const Item* item = findItem(name, kTypeFloat);
    if (item == nullptr) return false;
    *value = item->u.floatValue;
    return true;
}

bool AMessage::findDouble(const char* name, double* value) const {
    const Item* item = findItem(name, kTypeDouble);
    if (item == nullptr) return false;
    *value = item->u.doubleValue;
    return true;
}

bool AMessage::findPointer(const char* name, void** value) const {
    const Item* item = findItem(name, kTypePointer);
    if (item == nullptr) return false;
    *value = item->u.ptrValue;
    return true;
}

bool AMessage::findString(const char* name, AString* value) const {
    const Item* item = findItem(name, kTypeString);
    if (item == nullptr) return false;
    *value = item->mString;
    return true;
}

bool AMessage::findObject(const char* name, sp<RefBase>* obj) const {
    const Item* item = findItem(name, kTypeObject);
    if (item == nullptr) return false;
    *obj = item->mObject;
    return true;
}

bool AMessage::findBuffer(const char* name, sp<ABuffer>* buffer) const {
    const Item* item = findItem(name, kTypeBuffer);
    if (item == nullptr) return false;
    *buffer = static_cast<ABuffer*>(item->mObject.get());
    return true;
}

bool AMessage::findMessage(const char* name, sp<AMessage>* obj) const {
    const Item* item = findItem(name, kTypeMessage);
    if (item == nullptr) return false;
    *obj = static_cast<AMessage*>(item->mObject.get());
    return true;
}

bool AMessage::findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                        int32_t* bottom) const {
    const Item* item = findItem(name, kTypeRect);
    if (item == nullptr) return false;
    *left = item->u.rectValue.mLeft;
    *top = item->u.rectValue.mTop;
    *right = item->u.rectValue.mRight;
    *bottom = item->u.rectValue.mBottom;
    return true;
}

bool AMessage::findAsInt64(const char* name, int64_t* value) const {
    const Item* item = findItemAnyType(name);
    if (item == nullptr) return false;
    switch (item->mType) {
        case kTypeInt64:
            *value = item->u.int64Value;
            return true;
        case kTypeInt32:
            *value = item->u.int32Value;
            return true;
        default:
            return false;
    }
}

bool AMessage::findAsFloat(const char* name, float* value) const {
    const Item* item = findItemAnyType(name);
    if (item == nullptr) return false;
    switch (item->mType) {
        case kTypeFloat:
            *value = item->u.floatValue;
            return true;
        case kTypeDouble:
            *value = static_cast<float>(item->u.doubleValue);
            return true;
        case kTypeInt64:
            *value = static_cast<float>(item->u.int64Value);
            return true;
        case kTypeInt32:
            *value = static_cast<float>(item->u.int32Value);
            return true;
        case kTypeSize:
            *value = static_cast<float>(item->u.sizeValue);
            return true;
        default:
            return false;
    }
}

status_t AMessage::post(int64_t delayUs) {
    sp<ALooper> looper = mLooper.promote();
    if (looper == nullptr) {
        ALOGW("failed to post message as target looper for handler %d is gone.", mTarget);
        return -ENOENT;
    }
    looper->post(this, delayUs);
    return OK;
}

sp<AMessage> AMessage::dup() const {
    sp<AMessage> msg = new AMessage(mWhat, nullptr);
    msg->mTarget = mTarget;
    msg->mHandler = mHandler;
    msg->mLooper = mLooper;
    msg->mItems = mItems;
    for (Item& item : msg->mItems) {
        if (item.mType == kTypeMessage && item.mObject != nullptr) {
            item.mObject = static_cast<AMessage*>(item.mObject.get())->dup();
        }
    }
    return msg;
}

void AMessage::extend(const sp<AMessage>& other) {
    if (other == nullptr || other.get() == this) return;
    for (const Item& from : other->mItems) {
        Item copy = from;
        Item* item = allocateItem(copy.mName.c_str());
        *item = copy;
    }
}

bool AMessage::itemsEqual(const Item& a, const Item& b) {
    if (a.mType != b.mType) return false;
    switch (a.mType) {
        case kTypeInt32:
            return a.u.int32Value == b.u.int32Value;
        case kTypeInt64:
            return a.u.int64Value == b.u.int64Value;
        case kTypeSize:
            return a.u.sizeValue == b.u.sizeValue;
        case kTypeFloat:
            return a.u.floatValue == b.u.floatValue;
        case kTypeDouble:
            return a.u.doubleValue == b.u.doubleValue;
        case kTypePointer:
            return a.u.ptrValue == b.u.ptrValue;
        case kTypeString:
            return a.mString == b.mString;
        case kTypeRect:
            return memcmp(&a.u.rectValue, &b.u.rectValue, sizeof(Rect)) == 0;
        case kTypeObject:
        case kTypeMessage:
        case kTypeBuffer:
            return a.mObject == b.mObject;
    }
    return false;
}

sp<AMessage> AMessage::changesFrom(const sp<const AMessage>& other, bool deep) const {
    sp<AMessage> diff = new AMessage;
    diff->mWhat = mWhat;
    for (const Item& item : mItems) {
        const Item* old = other != nullptr ? other->findItemAnyType(item.mName.c_str()) : nullptr;
        if (old == nullptr || old->mType != item.mType) {
            *diff->allocateItem(item.mName.c_str()) = item;
            continue;
        }
        if (deep && item.mType == kTypeMessage && item.mObject != nullptr &&
            old->mObject != nullptr) {
            sp<AMessage> sub =
                    static_cast<AMessage*>(item.mObject.get())
                            ->changesFrom(static_cast<AMessage*>(old->mObject.get()), true);
            if (sub->countEntries() > 0) diff->setMessage(item.mName.c_str(), sub);
            continue;
        }
        if (!itemsEqual(item, *old)) *diff->allocateItem(item.mName.c_str()) = item;
    }
    return diff;
}

const char* AMessage::getEntryNameAt(size_t index, Type* type) const {
    if (index >= mItems.size()) {
        if (type != nullptr) *type = kTypeInt32;
        return nullptr;
    }
    if (type != nullptr) *type = mItems[index].mType;
    return mItems[index].mName.c_str();
}

ssize_t AMessage::findEntryByName(const char* name) const {
    if (name == nullptr) return -ENOENT;
    for (size_t i = 0; i < mItems.size(); ++i) {
        if (mItems[i].mName == name) return static_cast<ssize_t>(i);
    }
    return -ENOENT;
}

status_t AMessage::removeEntryAt(size_t index) {
    if (index >= mItems.size()) return BAD_INDEX;
    mItems.erase(mItems.begin() + static_cast<ptrdiff_t>(index));
    return OK;
}

status_t AMessage::removeEntryByName(const char* name) {
    ssize_t index = findEntryByName(name);
    if (index < 0) return BAD_INDEX;
    return removeEntryAt(static_cast<size_t>(index));
}

AString AMessage::debugString(int32_t indent) const {
    AString s("AMessage(what = ");
    appendWhat(&s, mWhat);
    if (mTarget != 0) s.append(AStringPrintf(", target = %d", mTarget));
    s.append(") = {\n");
    const AString pad(std::string(static_cast<size_t>(indent > 0 ? indent : 0) + 2, ' ').c_str());
    for (const Item& item : mItems) {
        s.append(pad);
        const char* name = item.mName.c_str();
        switch (item.mType) {
            case kTypeInt32:
                s.append(AStringPrintf("int32_t %s = %d", name, item.u.int32Value));
                break;
            case kTypeInt64:
                s.append(AStringPrintf("int64_t %s = %" PRId64, name, item.u.int64Value));
                break;
            case kTypeSize:
                s.append(AStringPrintf("size_t %s = %zu", name, item.u.sizeValue));
                break;
            case kTypeFloat:
                s.append(AStringPrintf("float %s = %f", name,
                                       static_cast<double>(item.u.floatValue)));
                break;
            case kTypeDouble:
                s.append(AStringPrintf("double %s = %f", name, item.u.doubleValue));
                break;
            case kTypePointer:
                s.append(AStringPrintf("void *%s = %p", name, item.u.ptrValue));
                break;
            case kTypeString:
                s.append(AStringPrintf("string %s = \"%s\"", name, item.mString.c_str()));
                break;
            case kTypeObject:
                s.append(AStringPrintf("RefBase *%s = %p", name, item.mObject.get()));
                break;
            case kTypeBuffer: {
                const ABuffer* buffer = static_cast<const ABuffer*>(item.mObject.get());
                s.append(AStringPrintf("ABuffer *%s = %p", name, buffer));
                if (buffer != nullptr) s.append(AStringPrintf(" (%zu bytes)", buffer->size()));
                break;
            }
            case kTypeMessage: {
                s.append(AStringPrintf("AMessage %s = ", name));
                const AMessage* sub = static_cast<const AMessage*>(item.mObject.get());
                if (sub == nullptr) {
                    s.append("NULL");
                } else {
                    s.append(sub->debugString(indent + 2));
                }
                break;
            }
            case kTypeRect:
                s.append(AStringPrintf("Rect %s(%d, %d, %d, %d)", name, item.u.rectValue.mLeft,
                                       item.u.rectValue.mTop, item.u.rectValue.mRight,
                                       item.u.rectValue.mBottom));
                break;
        }
        s.append("\n");
    }
    s.append(AString(std::string(static_cast<size_t>(indent > 0 ? indent : 0), ' ').c_str()));
    s.append("}");
    return s;
}

void AMessage::deliver() {
    sp<AHandler> handler = mHandler.promote();
    if (handler == nullptr) {
        ALOGW("failed to deliver message as target handler %d is gone.", mTarget);
        return;
    }
    handler->deliverMessage(this);
}

}  // namespace android
