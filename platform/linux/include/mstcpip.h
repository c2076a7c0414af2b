// Settings of TCP connections, under the header's name on Windows.
#pragma once

#include <winsock2.h>
