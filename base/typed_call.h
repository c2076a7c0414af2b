// Calls with arguments in words: each method is called by its member pointer, whose type says what
// the words hold, and is described only with the parameters that the member has.
#pragma once

#include <oleauto.h>

#include <initializer_list>
#include <type_traits>
#include <utility>

#include "base/interface_schema.h"

namespace interface_schema {

template <typename T>
T FromWord(CallWord word) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(word);
  } else {
    return static_cast<T>(word);
  }
}

template <typename T>
CallWord ToWord(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<CallWord>(value);
  } else {
    return static_cast<CallWord>(value);
  }
}

// Whether a value of that type is a T.
template <typename T>
constexpr bool Is(ValueType type) {
  using enum ValueType;
  return (type == kBstr && std::is_same_v<T, BSTR>) ||
         ((type == kLong || type == kProcessId) && std::is_same_v<T, LONG>) ||
         (type == kShort && std::is_same_v<T, SHORT>) ||
         (type == kChar && std::is_same_v<T, CHAR>) ||
         (type == kInt64 && std::is_integral_v<T> && std::is_signed_v<T> && sizeof(T) == 8) ||
         (type == kEnumeration && std::is_enum_v<T> && sizeof(T) == 4) ||
         ((type == kByteArray || type == kStringArray) && std::is_same_v<T, SAFEARRAY*>) ||
         (type == kRecord && std::is_class_v<T> && std::is_trivially_copyable_v<T>);
}

template <typename T>
constexpr bool Is(const Parameter& parameter) {
  if (parameter.direction == Direction::kIn) {
    return parameter.type != ValueType::kRecord && Is<T>(parameter.type);
  }
  return std::is_pointer_v<T> && Is<std::remove_pointer_t<T>>(parameter.type);
}

template <auto kMember>
struct TypedCall;

template <typename Interface, typename... Values,
          HRESULT (STDMETHODCALLTYPE Interface::*kMember)(Values...)>
struct TypedCall<kMember> {
  static_assert(sizeof...(Values) <= kMaxCallWords);
  using Arguments = void(Values...);

  static HRESULT Call(IUnknown* object, const CallWord* words) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return (static_cast<Interface*>(object)->*kMember)(FromWord<Values>(words[I])...);
    }
    (std::index_sequence_for<Values...>());
  }

  static constexpr bool Takes(std::initializer_list<Parameter> parameters) {
    const Parameter* next = parameters.begin();
    return parameters.size() == sizeof...(Values) && (Is<Values>(*next++) && ...);
  }
};

// The method of that name which the interface itself adds, where its bases have others.
template <typename Interface, typename... Values>
constexpr auto OwnMember(HRESULT (STDMETHODCALLTYPE Interface::*member)(Values...)) {
  return member;
}

void ParametersAreNotThoseOfTheMember();  // nowhere defined: a call does not compile

template <auto kMember>
consteval Method Describe(std::uint32_t slot, std::int32_t dispatch_id, const wchar_t* name,
                          const wchar_t* help, std::initializer_list<Parameter> parameters) {
  if (!TypedCall<kMember>::Takes(parameters)) ParametersAreNotThoseOfTheMember();
  Method method = {slot, dispatch_id, name, help, {}, &TypedCall<kMember>::Call};
  for (const Parameter& parameter : parameters) {
    method.parameters.room[method.parameters.count++] = parameter;
  }
  return method;
}

}  // namespace interface_schema
