// The form in which a component interface is described: one table of this form drives the type
// library on Windows and the message bus interfaces and dispatch on Linux.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace interface_schema {

// The parameter types of the interface. An output of type T is passed as T*.
enum class ValueType : std::uint8_t {
  kBstr,         // BSTR
  kLong,         // signed 32-bit
  kProcessId,    // the same, the id of a process on the machine of the object
  kShort,        // signed 16-bit
  kChar,         // signed 8-bit
  kInt64,        // signed 64-bit
  kByteArray,    // SAFEARRAY(unsigned char), one dimension, lower bound 0
  kStringArray,  // SAFEARRAY(BSTR), one dimension, lower bound 0
  kEnumeration,  // a named alias of an enumeration, 32-bit; `user_type` names it
  kRecord,       // a record, always an output; `user_type` names it
};

enum class Direction : std::uint8_t {
  kIn,
  kOut,
  kOutRetval,  // out and retval: what a late-bound caller receives as the call's result
};

struct Parameter {
  const wchar_t* name;
  ValueType type;
  Direction direction;
  const wchar_t* user_type = nullptr;  // name of the enumeration or record, else null
};

constexpr Parameter In(const wchar_t* name, ValueType type, const wchar_t* user_type = nullptr) {
  return {name, type, Direction::kIn, user_type};
}
constexpr Parameter Out(const wchar_t* name, ValueType type, const wchar_t* user_type = nullptr) {
  return {name, type, Direction::kOut, user_type};
}
constexpr Parameter Retval(const wchar_t* name, ValueType type,
                           const wchar_t* user_type = nullptr) {
  return {name, type, Direction::kOutRetval, user_type};
}

// An argument on its way between a method and a message or an automation value; of a narrow one
// only the low bits count.
using CallWord = std::uint64_t;
inline constexpr std::size_t kMaxCallWords = 12;

// Calls one method of the object, which has the method's interface. Also tells methods apart.
using MethodCall = HRESULT (*)(IUnknown* object, const CallWord* words);

// In declaration order.
struct Parameters {
  std::array<Parameter, kMaxCallWords> room;
  std::size_t count;

  constexpr const Parameter* begin() const { return room.data(); }
  constexpr const Parameter* end() const { return begin() + count; }
  constexpr std::size_t size() const { return count; }
  constexpr const Parameter& operator[](std::size_t index) const { return room[index]; }
};

// Every method returns HRESULT. Made by Describe (base/typed_call.h).
struct Method {
  std::uint32_t slot;  // index in the table of virtual operations; IUnknown begins at 0
  std::int32_t dispatch_id;
  const wchar_t* name;
  const wchar_t* help;
  Parameters parameters;
  MethodCall call;
};

struct Interface {
  const wchar_t* name;
  const GUID* id;
  const wchar_t* help;
  const Interface* base;            // null: derives from IDispatch
  std::span<const Method> methods;  // those that this interface adds, in slot order
};

struct Constant {
  const wchar_t* name;
  std::int32_t value;
  const wchar_t* help;
};

struct Enumeration {
  const wchar_t* name;
  const GUID* id;
  const wchar_t* help;
  std::span<const Constant> constants;
};

enum class FieldType : std::uint8_t { kUnsigned8, kSigned16 };

struct Field {
  const wchar_t* name;
  FieldType type;
  std::uint32_t offset;  // in bytes from the start of the record
};

struct Record {
  const wchar_t* name;
  const GUID* id;
  const wchar_t* help;
  std::uint32_t size;  // in bytes
  std::span<const Field> fields;
};

class RemoteObject;

struct ComponentClass {
  const wchar_t* name;
  const GUID* id;
  const wchar_t* help;
  const Interface* default_interface;
  // A new proxy of the class (base/proxy.h) with one reference.
  IUnknown* (*make_proxy)(std::unique_ptr<RemoteObject> remote);
};

// A type of the library, in the library's order: exactly one of the two is set.
struct UserType {
  const Enumeration* enumeration;
  const Record* record;
};

struct Library {
  const wchar_t* name;
  const GUID* id;
  std::uint16_t major_version;
  std::uint16_t minor_version;
  LCID locale;
  const wchar_t* help;
  const ComponentClass* component;
  std::span<const Interface* const> interfaces;  // in the library's order
  std::span<const UserType> types;               // in the library's order, after the interfaces
};

}  // namespace interface_schema
