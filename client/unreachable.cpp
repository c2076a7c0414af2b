#include "client/unreachable.h"

#include "client/numbers.h"

namespace client {

namespace {

constexpr HRESULT kClassNotRegistered = static_cast<HRESULT>(0x80040154);
constexpr HRESULT kServerExecFailure = static_cast<HRESULT>(0x80080005);
constexpr HRESULT kServerUnavailable = static_cast<HRESULT>(0x800706BA);
constexpr HRESULT kCallFailed = static_cast<HRESULT>(0x800706BE);
constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005);
constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057);

}  // namespace

std::string UnreachableAdvice(HRESULT status, const std::string& host) {
  const std::string code = " (" + HexWord(static_cast<std::uint32_t>(status)) + ")";
  if (!host.empty() && status == kClassNotRegistered) return "it is not installed there" + code;
  if (!host.empty() && status == kServerExecFailure) return "it could not be started there" + code;
  if (!host.empty() && status == kInvalidArgument) {
    return "a machine is named [USER@]HOST[:PORT]" + code;
  }
  if (!host.empty() && status == kServerUnavailable) {
    return "the connection was not made, or is lost; see whether ssh reaches that machine" + code;
  }
  switch (status) {
    case kClassNotRegistered:
      return "the service is not registered on this computer; run `TzWirefoxService -RegServer` "
             "once" +
             code;
    case kServerExecFailure:
      return "the service could not be started; run `TzWirefoxService -RegServer` again if it was "
             "moved" +
             code;
    case kServerUnavailable:
    case kCallFailed:
      return "the service has ended" + code;
    case kAccessDenied:
      return "this account may not use the service" + code;
    case kOutOfMemory:
      return "the data is too large to be sent" + code;
    default:
      return "the call to the service failed" + code;
  }
}

}  // namespace client
