#include "bindings/cpp/connection.h"

#include "client/interface_names.h"
#include "client/unreachable.h"

namespace wirefox {

Connection::Connection() {
  HRESULT status = S_OK;
  client_ = client::ConnectToService("", status);
  if (!client_) ThrowUnanswered("connect", status);
}

void Connection::ThrowOutcome(const char* method, TzErrorCode error) {
  const auto code = static_cast<std::int32_t>(error);
  throw Error(std::string(method) + ": " + client::NameOfValue(client::kErrorCodes, code) +
                  " (error " + std::to_string(code) + ")",
              error, 0);
}

void Connection::ThrowUnanswered(const char* method, HRESULT status) {
  throw Error(std::string(method) + ": " + client::UnreachableAdvice(status, ""),
              TzErrorCode::UNKNOWN, static_cast<std::uint32_t>(status));
}

}  // namespace wirefox
