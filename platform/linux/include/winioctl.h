// How the control codes of drivers are put together.
#pragma once

#define FILE_DEVICE_UNKNOWN 0x00000022
#define METHOD_BUFFERED 0
#define METHOD_NEITHER 3
#define FILE_ANY_ACCESS 0

#define CTL_CODE(device_type, function, method, access) \
  (((device_type) << 16) | ((access) << 14) | ((function) << 2) | (method))
