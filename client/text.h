// Text between the three forms that a client meets: UTF-8 inside, UTF-16 at the interface, and the
// code page of the system in the arguments of main.
#pragma once

#include <string>
#include <string_view>

namespace client {

// Malformed input gives U+FFFD in its place, on both ways.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

// An argument of main, which the system hands over in its own code page.
std::string Utf8FromArgument(std::string_view argument);

// UTF-8 in which each control character, which a terminal would act on, is a question mark.
std::string Printable(std::string_view utf8);

// ASCII letters only: what is compared are names of this program and of the interface.
std::string LowerCase(std::string_view text);

}  // namespace client
