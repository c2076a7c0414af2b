// The bytes of packets and replies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace wirefox {

using Bytes = std::vector<std::uint8_t>;

// Bytes that a call reads where they lie: a Bytes, a std::array, a span, or pointer and size.
class ByteView {
 public:
  constexpr ByteView(const std::uint8_t* data, std::size_t size) noexcept
      : data_(data), size_(size) {}

  template <typename Container,
            typename = std::enable_if_t<std::is_convertible_v<
                decltype(std::declval<const Container&>().data()), const std::uint8_t*>>>
  constexpr ByteView(const Container& bytes) noexcept : data_(bytes.data()), size_(bytes.size()) {}

  constexpr const std::uint8_t* data() const noexcept { return data_; }
  constexpr std::size_t size() const noexcept { return size_; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace wirefox
