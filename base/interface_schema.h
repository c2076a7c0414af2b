// The form in which a component interface is described: one table of this form drives the type
// library on Windows and the message bus interfaces and dispatch on Linux.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

namespace interface_schema {

// The parameter types of the interface. An output of type T is passed as T*.
enum class ValueType : std::uint8_t {
  kBstr,         // BSTR
  kLong,         // signed 32-bit
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

// Every method returns HRESULT.
struct Method {
  std::uint32_t slot;  // index in the table of virtual operations; IUnknown begins at 0
  std::int32_t dispatch_id;
  const wchar_t* name;
  const wchar_t* help;
  std::span<const Parameter> parameters;
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

struct ComponentClass {
  const wchar_t* name;
  const GUID* id;
  const wchar_t* help;
  const Interface* default_interface;
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
