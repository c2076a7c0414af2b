// Where the file lies that tells clients of changes to the list of probes.
#pragma once

namespace api {

// Remembers the file's path, if there is one by now and none is remembered yet. Every new client
// object calls it, with the device-table lock held. May throw OutOfStrings.
void RememberDevicesChangedLocation();

// Null until there was one to remember; the text never changes after that. Under the same lock.
const wchar_t* DevicesChangedLocation();

}  // namespace api
