// StreamExchange: bytes out on one endpoint while bytes come in on another, as JTAG and SWD need
// it.
#pragma once

#include <cstdint>

#include "device/stream_pipe.h"

class StreamExchange {
 public:
  // The events of the two transfers have fixed names, so there is one exchange at a time in the
  // process; the device-table lock sees to that.
  StreamExchange(CTzUSBEndPoint& out, CTzUSBEndPoint& in);

  // Moves `out_length` bytes out and up to `in_length` bytes in, both in flight together, each with
  // its endpoint's time-out; `in_length` is then the bytes received. False when any part failed.
  // Neither buffer is used after the return. May run again, also after a failure.
  bool Run(const std::uint8_t* out, std::uint32_t out_length, std::uint8_t* in,
           std::uint32_t& in_length);

  // After a failed Run: clears both pipes, so that the next exchange starts afresh.
  void AbortAndReset();

 private:
  StreamPipe out_;
  StreamPipe in_;
};
