#include <wirefox/error.h>

namespace wirefox {

Error::Error(const std::string& what, TzErrorCode code, std::uint32_t call_status)
    : std::runtime_error(what), code_(code), call_status_(call_status) {}

// Out of line, so that programs and the library agree on one type.
Error::Error(const Error&) noexcept = default;
Error& Error::operator=(const Error&) noexcept = default;
Error::~Error() = default;

}  // namespace wirefox
