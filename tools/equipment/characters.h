// The set's character set. Texts are UTF-8 everywhere in the equipment but on the wire and in the display buffer, where
// each character is one byte: ASCII as it is, accented letters above 0x7F.
#pragma once

#include "equipment/frames.h"

#include <string>

namespace Equipment {

// Characters that the set does not have become '?'.
Bytes ToSet(const std::string& utf8);
// As the PBX writes names in its call events: the Windows code page. Characters beyond Latin 1 become '?'.
Bytes ToWindows(const std::string& utf8);
std::string FromSet(ByteSpan bytes);
// Appends a character as UTF-8.
void AppendUtf8(std::string& utf8, char16_t c);
// Cut or filled with blanks to exactly `width` characters of the set.
Bytes ToField(const std::string& utf8, std::size_t width);

}  // namespace Equipment
