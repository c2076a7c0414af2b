// The diagnostic log: one time-stamped line per call, filtered by category against LOGLEVEL.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// Categories, one or two of which every call passes. LOGLEVEL is a mask of them.
inline constexpr std::uint32_t LOG_ERROR = 0x01;   // failures
inline constexpr std::uint32_t LOG_DEVICE = 0x02;  // probe arrival and removal
inline constexpr std::uint32_t LOG_API = 0x04;     // client calls, always with LOG_TRACE
inline constexpr std::uint32_t LOG_XFER = 0x08;    // programming notices; transfers with LOG_TRACE
inline constexpr std::uint32_t LOG_TRACE = 0x10;   // every operation with its arguments

// Records path and level; a level above 0 empties the file or creates it. `path` is kept, not
// copied, and stays valid for the life of the process. A file that cannot be opened is tried again
// at each line. Called once at start, before other threads log.
void OpenLog(const char* path, std::int32_t level);

namespace log_internal {

inline constinit std::atomic<std::int32_t> level{0};

enum class ArgumentKind : std::uint8_t { kNumber, kText, kPointer };

template <typename T>
consteval ArgumentKind KindOf() {
  if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
    return ArgumentKind::kText;
  } else if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>) {
    return ArgumentKind::kPointer;
  } else {
    static_assert(std::is_integral_v<T> || std::is_convertible_v<T, int>,
                  "log lines hold numbers, narrow texts and addresses");
    static_assert(sizeof(T) <= sizeof(std::uint32_t), "numbers in log lines have up to 32 bits");
    return ArgumentKind::kNumber;
  }
}

template <typename T>
constexpr auto Promote(T value) {
  if constexpr (std::is_null_pointer_v<T>) {
    return 0ULL;
  } else if constexpr (KindOf<T>() == ArgumentKind::kText) {
    return static_cast<const char*>(value);
  } else if constexpr (KindOf<T>() == ArgumentKind::kPointer) {
    return reinterpret_cast<unsigned long long>(value);
  } else if constexpr (std::is_unsigned_v<T>) {
    return static_cast<unsigned int>(value);
  } else {
    return static_cast<int>(value);
  }
}

// Not constexpr, so that reaching it stops the compiler with its name in the message.
inline void LogFormatDoesNotMatchItsArguments() {}

// A printf format that is checked against the types of its arguments when it is compiled. It may
// use %d %i %u %x %X %c with flags, width and precision, %s, and %p just as it stands.
template <typename... Args>
class Format {
 public:
  consteval Format(const char* text) : text_(text) {  // NOLINT: formats are written as literals
    constexpr ArgumentKind kinds[] = {KindOf<Args>()..., ArgumentKind::kNumber};
    std::size_t used = 0;
    for (const char* at = text; *at != 0; ++at) {
      if (*at != '%') continue;
      const char* begin = ++at;
      while ((*at >= '0' && *at <= '9') || *at == '.' || *at == '-' || *at == '#') ++at;
      if (*at == '%' && at == begin) continue;
      const bool number =
          *at == 'd' || *at == 'i' || *at == 'u' || *at == 'x' || *at == 'X' || *at == 'c';
      const bool pointer = *at == 'p' && at == begin;
      const bool matches =
          used < sizeof...(Args) && ((kinds[used] == ArgumentKind::kNumber && number) ||
                                     (kinds[used] == ArgumentKind::kText && *at == 's') ||
                                     (kinds[used] == ArgumentKind::kPointer && pointer));
      if (!matches) LogFormatDoesNotMatchItsArguments();
      ++used;
    }
    if (used != sizeof...(Args)) LogFormatDoesNotMatchItsArguments();
  }

  const char* Text() const { return text_; }

 private:
  const char* text_;
};

// Arguments as Promote gives them.
void WriteLine(const char* source, const char* format, ...);

}  // namespace log_internal

// Appends "time [source]message" when `category` and the level share a bit; otherwise costs one AND
// and one comparison. `format` is a printf format, checked at compile time; an address (%p) prints
// as 16 upper-case hexadecimal digits; a message is cut at 4095 characters. Any thread; a line
// comes out whole. Never fails towards its caller, and leaves the thread's last error as it was.
template <typename... Args>
inline void Log(std::uint32_t category, const char* source,
                log_internal::Format<std::type_identity_t<Args>...> format, Args... args) {
  const auto enabled =
      static_cast<std::int32_t>(category) & log_internal::level.load(std::memory_order_relaxed);
  if (enabled > 0) {
    log_internal::WriteLine(source, format.Text(), log_internal::Promote(args)...);
  }
}
