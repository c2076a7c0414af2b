// The exception of the library.
#pragma once

#include <wirefox/export.h>
#include <wirefox/types.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace wirefox {

// A call did not succeed. what() names the method and the reason, in one line of English.
class WIREFOX_API Error : public std::runtime_error {
 public:
  // What the service answered; UNKNOWN as well when it did not answer at all.
  TzErrorCode code() const noexcept { return code_; }

  // Why no answer came: the status of the component library (0x80070005 denied, 0x800706BA the
  // service has ended, ...). 0 when the service answered. After 0x8007000E, data too large to be
  // sent, the connection is as good as before; after others only a new Service may help.
  std::uint32_t call_status() const noexcept { return call_status_; }

  Error(const std::string& what, TzErrorCode code, std::uint32_t call_status);
  Error(const Error&) noexcept;
  Error& operator=(const Error&) noexcept;
  ~Error() override;

 private:
  TzErrorCode code_;
  std::uint32_t call_status_;
};

}  // namespace wirefox
