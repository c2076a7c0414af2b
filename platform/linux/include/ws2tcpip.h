// Names of hosts and ports, under the header's name on Windows.
#pragma once

#include <winsock2.h>

#include <netdb.h>
