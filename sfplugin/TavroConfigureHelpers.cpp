#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroConfigureHelpers.h"

#include <string.h>
#include <strings.h>

#include <cutils/properties.h>
#include <tavro/ListServiceUtils.h>

#include "common/TavroRecordTap.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureSteps.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// Chips compared over this many leading characters: the chip without its variant letter.
constexpr size_t kChipNameLength = 6;

bool listValue(bool answered, const char* buffer, String8* out) {
    // The service may fill the whole buffer without a terminator: never read past it.
    *out = answered ? String8(buffer, strnlen(buffer, kListValueSize)) : String8();
    return answered;
}

void tapAnswer(const char* list, TavroListAsk ask, int64_t id, TavroListReply reply,
               const String8& value = String8()) {
    if (TavroRecordTap* tap = tavroRecordTap()) {
        tap->onListAnswer(list, ask, id, nullptr, reply, value.c_str(), value.size(), false);
    }
}

TavroListReply valueReply(bool answered) {
    return answered ? TavroListReply::kValue : TavroListReply::kNone;
}

TavroListReply memberReply(bool member) {
    return member ? TavroListReply::kMember : TavroListReply::kNone;
}

}  // namespace

bool tavroListValueByUid(const char* list, int64_t uid, String8* out) {
    char buffer[kListValueSize] = {};
    const bool answered =
            ListServiceUtils::getInstance()->getListValueByUid(list, uid, buffer, sizeof(buffer));
    listValue(answered, buffer, out);
    tapAnswer(list, TavroListAsk::kUid, uid, valueReply(answered), *out);
    return answered;
}

bool tavroListValueByTopActivity(const char* list, int32_t pid, String8* out) {
    char buffer[kListValueSize] = {};
    const bool answered = ListServiceUtils::getInstance()->getListValueByTopActivity(
            list, pid, buffer, sizeof(buffer));
    listValue(answered, buffer, out);
    tapAnswer(list, TavroListAsk::kTopActivity, pid, valueReply(answered), *out);
    return answered;
}

bool tavroListValue(const TavroConfigureContext& ctx, const char* list, TavroListKey by,
                    String8* out) {
    switch (by) {
        case TavroListKey::kBinderUid:
            return tavroListValueByUid(list, ctx.binderUid, out);
        case TavroListKey::kAppUid:
            return tavroListValueByUid(list, ctx.appUid, out);
        case TavroListKey::kTopActivity:
            return tavroListValueByTopActivity(list, ctx.ownPid, out);
    }
    *out = String8();
    return false;
}

bool tavroInListByUid(const char* list, int64_t uid) {
    const bool member = ListServiceUtils::getInstance()->checkInListByUid(list, uid, 0);
    tapAnswer(list, TavroListAsk::kUid, uid, memberReply(member));
    return member;
}

bool tavroInListByPid(const char* list, int64_t pid) {
    const bool member = ListServiceUtils::getInstance()->checkInListByPid(list, pid, 0);
    tapAnswer(list, TavroListAsk::kPid, pid, memberReply(member));
    return member;
}

bool TavroListPairs::parse(const String8& text) {
    return parseKeyValuePairFromStr(text.c_str(), mPairs);
}

String8 TavroListPairs::text(const char* key, const char* fallback) const {
    auto it = mPairs.find(String8(key));
    return it == mPairs.end() ? String8(fallback) : it->second;
}

int32_t TavroListPairs::integer(const char* key, int32_t fallback) const {
    return getIntValueFromKeyValuePair(mPairs, key, fallback);
}

bool tavroChipMatches(TavroChipMatch how, const char* cpu) {
    if (cpu == nullptr) return false;
    if (how == TavroChipMatch::kFamilyInCpu) {
        return strstr(cpu, tavroProperty(kPropDeviceFamily, kUnknownValue).c_str()) != nullptr;
    }
    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    switch (how) {
        case TavroChipMatch::kSocInCpu:
            return strstr(cpu, soc.c_str()) != nullptr;
        case TavroChipMatch::kSocBeginsWith:
            return strncasecmp(soc.c_str(), cpu, strlen(cpu)) == 0;
        case TavroChipMatch::kSameChip:
            return strncasecmp(soc.c_str(), cpu, kChipNameLength) == 0;
        case TavroChipMatch::kFamilyInCpu:
            break;
    }
    return false;
}

String8 tavroProperty(const char* key, const char* defaultValue) {
    tavroTapProperty(key);
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, defaultValue);
    return String8(value, strnlen(value, sizeof(value)));
}

bool tavroStartsWith(const char* text, const char* prefix) {
    return text != nullptr && prefix != nullptr && strncmp(text, prefix, strlen(prefix)) == 0;
}

bool tavroStartsWithIgnoreCase(const char* text, const char* prefix) {
    return text != nullptr && prefix != nullptr && strncasecmp(text, prefix, strlen(prefix)) == 0;
}

}  // namespace android
