// A client of the registered server, holding one JTAG session, for the rows that measure client
// calls.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <cstdint>

#include "api/tz_wirefox.h"

namespace bench {

// Ends the program with a message when the server cannot be reached or refuses.
class ClientSession {
 public:
  // `listing_mode` is the mode in which the probe's first target is found and acquired; the probe
  // is then left in JTAG mode.
  ClientSession(const wchar_t* probe, TzTransferMode listing_mode);
  ~ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  void GetVersion();
  // Sends `bytes` with read set; the reply must hold half as many.
  void SendJtagPacket(SAFEARRAY* bytes);

 private:
  ITzWirefox_v3* server_ = nullptr;
  std::int64_t handle_ = 0;
};

}  // namespace bench
