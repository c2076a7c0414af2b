#include "device/stream_exchange.h"

#include "usb/usb_endpoint.h"

StreamExchange::StreamExchange(CTzUSBEndPoint& out, CTzUSBEndPoint& in)
    : out_(out, kOutEventName), in_(in, kInEventName) {}

bool StreamExchange::Run(const std::uint8_t* out, std::uint32_t out_length, std::uint8_t* in,
                         std::uint32_t& in_length) {
  out_.Start(SentBytes(out), out_length);
  in_.Start(in, in_length);
  const bool out_waited = out_.Wait();
  const bool in_waited = in_.Wait();
  std::uint32_t sent = 0;
  const bool out_completed = out_.Complete(sent);
  const bool in_completed = in_.Complete(in_length);
  return out_waited && in_waited && out_completed && in_completed;
}

void StreamExchange::AbortAndReset() {
  for (StreamPipe* pipe : {&out_, &in_}) {
    // What cannot be cleared shows at the next exchange.
    pipe->EndPoint().AbortTransfers();
    pipe->EndPoint().ResetPipe();
  }
}
