// Text forms of AMessage values for host events: how the recording fakes show the messages they
// receive ("name" -> "value" pairs, nested messages in braces). Private to the host layer.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <media/stagefright/foundation/AMessage.h>

namespace android {
namespace host {

// One pair per entry, in the message's order: the entry name and its value as text. Integers in
// decimal, floats in their shortest round-trip form, strings as they are, rects as
// "left,top,right,bottom", buffers as lowercase hex of their range, sub-messages in messageText
// form, objects and pointers as "<object>" / "<pointer>". A null message gives no pairs, and so
// does any message while no event is wanted (HostEvents::wanted()): the text would be dropped.
std::vector<std::pair<std::string, std::string>> messageFields(const sp<AMessage>& msg);

// The whole message on one line: "{key=value, key=value}" ("{}" when empty, "null" for null).
std::string messageText(const sp<AMessage>& msg);

}  // namespace host
}  // namespace android
