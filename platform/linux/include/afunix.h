// Addresses of local sockets, under the header's name on Windows.
#pragma once

#include <winsock2.h>

#include <sys/un.h>
