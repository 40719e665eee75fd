// Text forms of AMessage values for host events.
#include "HostMessageText.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

#include <host/HostEvents.h>
#include <media/stagefright/foundation/ABuffer.h>

namespace android {
namespace host {
namespace {

template <typename T>
std::string shortest(T value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

std::string hexBytes(const uint8_t* data, size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        text.push_back(kDigits[data[i] >> 4]);
        text.push_back(kDigits[data[i] & 0xF]);
    }
    return text;
}

std::string valueText(const sp<AMessage>& msg, const char* name, AMessage::Type type) {
    switch (type) {
        case AMessage::kTypeInt32: {
            int32_t v = 0;
            msg->findInt32(name, &v);
            return std::to_string(v);
        }
        case AMessage::kTypeInt64: {
            int64_t v = 0;
            msg->findInt64(name, &v);
            return std::to_string(v);
        }
        case AMessage::kTypeSize: {
            size_t v = 0;
            msg->findSize(name, &v);
            return std::to_string(v);
        }
        case AMessage::kTypeFloat: {
            float v = 0;
            msg->findFloat(name, &v);
            return shortest(v);
        }
        case AMessage::kTypeDouble: {
            double v = 0;
            msg->findDouble(name, &v);
            return shortest(v);
        }
        case AMessage::kTypeString: {
            AString v;
            msg->findString(name, &v);
            return std::string(v.c_str(), v.size());
        }
        case AMessage::kTypeRect: {
            int32_t l = 0, t = 0, r = 0, b = 0;
            msg->findRect(name, &l, &t, &r, &b);
            char text[64];
            snprintf(text, sizeof(text), "%d,%d,%d,%d", l, t, r, b);
            return text;
        }
        case AMessage::kTypeBuffer: {
            sp<ABuffer> buffer;
            msg->findBuffer(name, &buffer);
            if (buffer == nullptr) return "null";
            return hexBytes(buffer->data(), buffer->size());
        }
        case AMessage::kTypeMessage: {
            sp<AMessage> sub;
            msg->findMessage(name, &sub);
            return messageText(sub);
        }
        case AMessage::kTypeObject:
            return "<object>";
        case AMessage::kTypePointer:
            return "<pointer>";
    }
    return std::string();
}

}  // namespace

std::vector<std::pair<std::string, std::string>> messageFields(const sp<AMessage>& msg) {
    std::vector<std::pair<std::string, std::string>> fields;
    // Text for an event nobody keeps or sees would only cost time.
    if (msg == nullptr || !HostEvents::wanted()) return fields;
    const size_t count = msg->countEntries();
    fields.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        AMessage::Type type;
        const char* name = msg->getEntryNameAt(i, &type);
        if (name == nullptr) continue;
        fields.emplace_back(name, valueText(msg, name, type));
    }
    return fields;
}

std::string messageText(const sp<AMessage>& msg) {
    if (msg == nullptr) return "null";
    std::string text = "{";
    bool first = true;
    for (const auto& field : messageFields(msg)) {
        if (!first) text += ", ";
        first = false;
        text += field.first;
        text += '=';
        text += field.second;
    }
    text += '}';
    return text;
}

}  // namespace host
}  // namespace android
