// Text on the message bus: UTF-8 without zeros, converted to and from counted wide strings.
//
// A wide string may hold what the bus cannot carry: zeros, lone surrogates, and noncharacters
// (U+FDD0 to U+FDEF, and the last two of each plane). Each such unit U travels as the character
// 0x100000 + U of the last private use plane (0xFFFE and 0xFFFF as 0x10FDF0 and 0x10FDF1), both
// surrogates of a noncharacter likewise, and is restored at the other end, so a probe whose name
// holds one can still be named by clients. The characters 0x100000, 0x10D800 to 0x10DFFF and
// 0x10FDD0 to 0x10FDF1 themselves therefore do not survive the way. An element above 0xFFFF, which
// no wide string of this layer holds, travels as U+FFFD.
#pragma once

#include <wtypes.h>

#include <cstddef>

namespace linux_host {

// Bytes of `length` wide units as text on the bus, without a final zero.
std::size_t DBusTextSize(const OLECHAR* text, std::size_t length);
// Writes exactly that many bytes and no final zero.
void WriteDBusText(const OLECHAR* text, std::size_t length, char* out);

// Wide units of `size` bytes of text from the bus. A malformed byte counts as one U+FFFD.
std::size_t WideTextLength(const char* text, std::size_t size);
// Writes exactly that many units and no final zero.
void WriteWideText(const char* text, std::size_t size, OLECHAR* out);

// The whole as a string that the caller frees; null when memory is short.
BSTR BstrFromDBusText(const char* text);

}  // namespace linux_host
