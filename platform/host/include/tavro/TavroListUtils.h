// The maker's text utilities for list-service values and process identity. Closed on a device; the
// configuration steps of the codec call them to read per-app list values.
//
// Key/value text, as the list service stores it for the configuration lists:
//   "cpu=SM8650,priority=1"   or   "type=avc;avcLimitBitrate=12000000;limitWidth=1920"
// Pairs are separated by ',' or ';' (the two may be mixed). Each pair is cut at its first '=';
// everything after it, further '=' included, is the value. Nothing is trimmed: " cpu=x" has the
// key " cpu". Empty pieces, pieces without '=', and pairs with an empty key or value are skipped.
// Keys are case-sensitive; when a key occurs twice the later pair wins.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include <utils/String8.h>

namespace android {

using TavroKeyValueMap = std::map<String8, String8>;

// Separators of the key/value text and of the pairs themselves.
constexpr char kTavroPairSeparators[] = ",;";
constexpr char kTavroKeyValueSeparator = '=';

// Parses `text` (NUL-terminated) into `pairs`, which is emptied first. Returns true when at least
// one pair was found; a null pointer, empty text or text without any usable pair gives false.
[[nodiscard]] bool parseKeyValuePairFromStr(const char* text, TavroKeyValueMap& pairs);

// The integer value of `key`, read like atoi (leading blanks, a sign, digits up to the first other
// character; no digits read 0; values beyond 32 bits keep their low 32 bits). `defaultValue` when
// the key is absent.
int32_t getIntValueFromKeyValuePair(const TavroKeyValueMap& pairs, const char* key,
                                    int32_t defaultValue);

// Splits `text` (NUL-terminated) at every `delimiter` into `list`, which is emptied first. Every
// piece is kept, empty ones included, so n delimiters always give n + 1 pieces ("a##b" gives "a",
// "", "b"). Returns false for a null pointer or empty text (and `list` stays empty).
[[nodiscard]] bool getListFromStr(const char* text, std::vector<String8>& list, char delimiter);

// The name of process `pid`: the first NUL-terminated piece of /proc/<pid>/cmdline, or, when that
// is empty, /proc/<pid>/comm without its newline. Empty when neither can be read. Reads at most
// 4096 bytes of either file. Any thread.
String8 getProcessName(pid_t pid);

// ---- Host only -------------------------------------------------------------------------------
// Points getProcessName at `root` (a directory laid out like /proc, no trailing '/'); an empty
// string restores "/proc". Tests and the scenario runner set it next to the white-list probe's
// root. Call only while no other thread reads process names.
void setProcessNameRootForTesting(const std::string& root);

}  // namespace android
