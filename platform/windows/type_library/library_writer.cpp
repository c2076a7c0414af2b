#include "platform/windows/type_library/library_writer.h"

#include <oleauto.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/windows/com_pointer.h"

namespace type_library {
namespace {

using interface_schema::Constant;
using interface_schema::Direction;
using interface_schema::Enumeration;
using interface_schema::Field;
using interface_schema::FieldType;
using interface_schema::Interface;
using interface_schema::Library;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::Record;
using interface_schema::ValueType;
using windows_host::ComPointer;

constexpr WORD kInterfaceFlags =
    TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FDISPATCHABLE;
constexpr WORD kRecordAlignment = 2;

// The calls take texts by pointers to non-const, but only read them.
LPOLESTR Text(const wchar_t* text) { return const_cast<LPOLESTR>(text); }

VARTYPE TypeOf(ValueType type) {
  switch (type) {
    case ValueType::kBstr:
      return VT_BSTR;
    case ValueType::kLong:
    case ValueType::kProcessId:
      return VT_I4;
    case ValueType::kShort:
      return VT_I2;
    case ValueType::kChar:
      return VT_I1;
    case ValueType::kInt64:
      return VT_I8;
    case ValueType::kByteArray:
    case ValueType::kStringArray:
      return VT_SAFEARRAY;
    case ValueType::kEnumeration:
    case ValueType::kRecord:
      return VT_USERDEFINED;
  }
  return VT_EMPTY;
}

USHORT FlagsOf(Direction direction) {
  switch (direction) {
    case Direction::kIn:
      return PARAMFLAG_FIN;
    case Direction::kOut:
      return PARAMFLAG_FOUT;
    case Direction::kOutRetval:
      return PARAMFLAG_FOUT | PARAMFLAG_FRETVAL;
  }
  return PARAMFLAG_NONE;
}

VARDESC NewVariable(VARKIND kind, VARTYPE type) {
  VARDESC variable = {};
  variable.memid = MEMBERID_NIL;
  variable.varkind = kind;
  variable.elemdescVar.tdesc.vt = type;
  return variable;
}

// Gathers the first failure of many calls, after which nothing more is done.
class Writer {
 public:
  HRESULT Write(const Library& described, const wchar_t* path) {
    Do([&] { return CreateTypeLib2(SYS_WIN64, path, library_.Receive()); });
    Do([&] { return library_->SetName(Text(described.name)); });
    Do([&] { return library_->SetGuid(*described.id); });
    Do([&] { return library_->SetVersion(described.major_version, described.minor_version); });
    Do([&] { return library_->SetLcid(described.locale); });
    Do([&] { return library_->SetDocString(Text(described.help)); });
    Do([&] { return library_->SetLibFlags(0); });
    AddTypes(described);
    FillTypes(described);
    Do([&] { return library_->SaveAllChanges(); });
    return status_;
  }

 private:
  template <typename Call>
  void Do(Call call) {
    if (SUCCEEDED(status_)) status_ = call();
  }

  // All types first, in the library's order: they refer to each other in any direction.
  void AddTypes(const Library& described) {
    Add(described.component->name, TKIND_COCLASS, described.component->id,
        described.component->help);
    for (const Interface* entry : described.interfaces) {
      Add(entry->name, TKIND_INTERFACE, entry->id, entry->help);
    }
    for (const auto& type : described.types) {
      if (type.record) {
        Add(type.record->name, TKIND_RECORD, type.record->id, type.record->help);
      } else {
        Add(type.enumeration->name, TKIND_ALIAS, type.enumeration->id, type.enumeration->help);
        Add(UnnamedName(*type.enumeration), TKIND_ENUM, nullptr, nullptr);
      }
    }
  }

  void FillTypes(const Library& described) {
    for (const auto& type : described.types) {
      if (type.record) {
        FillRecord(*type.record);
      } else {
        FillEnumeration(*type.enumeration);
      }
    }
    // The library begins with the newest version, but each is laid out after the one that it
    // extends.
    for (auto at = described.interfaces.rbegin(); at != described.interfaces.rend(); ++at) {
      FillInterface(**at);
    }
    FillClass(*described.component);
  }

  // The format knows no type without a name.
  static std::wstring UnnamedName(const Enumeration& enumeration) {
    return std::wstring(L"__unnamed_") + enumeration.name;
  }

  void Add(const std::wstring& name, TYPEKIND kind, const GUID* id, const wchar_t* help) {
    ComPointer<ICreateTypeInfo>& type = types_[name];
    Do([&] { return library_->CreateTypeInfo(Text(name.c_str()), kind, type.Receive()); });
    if (id) Do([&] { return type->SetGuid(*id); });
    if (help) Do([&] { return type->SetDocString(Text(help)); });
  }

  ICreateTypeInfo* Type(const std::wstring& name) { return types_.at(name).Get(); }

  HREFTYPE Refer(ICreateTypeInfo* from, ITypeInfo* to) {
    HREFTYPE reference = 0;
    Do([&] { return from->AddRefTypeInfo(to, &reference); });
    return reference;
  }

  HREFTYPE Refer(ICreateTypeInfo* from, const std::wstring& to) {
    ComPointer<ITypeInfo> type;
    Do([&] { return Type(to)->QueryInterface(IID_ITypeInfo, type.ReceiveVoid()); });
    return Refer(from, type.Get());
  }

  void FillEnumeration(const Enumeration& described) {
    ICreateTypeInfo* const alias = Type(described.name);
    ICreateTypeInfo* const constants = Type(UnnamedName(described));
    TYPEDESC aliased = {};
    aliased.vt = VT_USERDEFINED;
    aliased.hreftype = Refer(alias, UnnamedName(described));
    Do([&] { return alias->SetTypeDescAlias(&aliased); });
    UINT index = 0;
    for (const Constant& constant : described.constants) {
      VARIANT value = {};
      V_VT(&value) = VT_I4;
      V_I4(&value) = constant.value;
      VARDESC variable = NewVariable(VAR_CONST, VT_INT);
      variable.lpvarValue = &value;
      Do([&] { return constants->AddVarDesc(index, &variable); });
      Do([&] { return constants->SetVarName(index, Text(constant.name)); });
      Do([&] { return constants->SetVarDocString(index, Text(constant.help)); });
      ++index;
    }
    Do([&] { return constants->LayOut(); });
    Do([&] { return alias->LayOut(); });
  }

  void FillRecord(const Record& described) {
    ICreateTypeInfo* const record = Type(described.name);
    Do([&] { return record->SetAlignment(kRecordAlignment); });
    UINT index = 0;
    for (const Field& field : described.fields) {
      VARDESC variable =
          NewVariable(VAR_PERINSTANCE, field.type == FieldType::kUnsigned8 ? VT_UI1 : VT_I2);
      variable.oInst = field.offset;
      Do([&] { return record->AddVarDesc(index, &variable); });
      Do([&] { return record->SetVarName(index, Text(field.name)); });
      ++index;
    }
    Do([&] { return record->LayOut(); });
  }

  void FillInterface(const Interface& described) {
    ICreateTypeInfo* const type = Type(described.name);
    Do([&] { return type->SetTypeFlags(kInterfaceFlags); });
    const HREFTYPE base =
        described.base ? Refer(type, described.base->name) : ReferToDispatch(type);
    Do([&] { return type->AddImplType(0, base); });
    UINT index = 0;
    for (const Method& method : described.methods) AddMethod(type, index++, method);
    Do([&] { return type->LayOut(); });
  }

  HREFTYPE ReferToDispatch(ICreateTypeInfo* from) {
    ComPointer<ITypeLib> automation;
    ComPointer<ITypeInfo> dispatch;
    Do([&] { return LoadTypeLib(L"stdole2.tlb", automation.Receive()); });
    Do([&] { return automation->GetTypeInfoOfGuid(IID_IDispatch, dispatch.Receive()); });
    return Refer(from, dispatch.Get());
  }

  void AddMethod(ICreateTypeInfo* type, UINT index, const Method& method) {
    std::vector<ELEMDESC> elements;
    std::deque<TYPEDESC> descriptions;  // which the elements point to
    std::vector<LPOLESTR> names = {Text(method.name)};
    for (const Parameter& parameter : method.parameters) {
      elements.push_back(Element(type, parameter, descriptions));
      names.push_back(Text(parameter.name));
    }
    FUNCDESC function = {};
    function.memid = method.dispatch_id;
    function.funckind = FUNC_PUREVIRTUAL;
    function.invkind = INVOKE_FUNC;
    function.callconv = CC_STDCALL;
    function.cParams = static_cast<SHORT>(elements.size());
    function.lprgelemdescParam = elements.data();
    function.elemdescFunc.tdesc.vt = VT_HRESULT;
    function.oVft = static_cast<SHORT>(method.slot * sizeof(void*));
    Do([&] { return type->AddFuncDesc(index, &function); });
    Do([&] {
      return type->SetFuncAndParamNames(index, names.data(), static_cast<UINT>(names.size()));
    });
    Do([&] { return type->SetFuncDocString(index, Text(method.help)); });
  }

  ELEMDESC Element(ICreateTypeInfo* type, const Parameter& parameter,
                   std::deque<TYPEDESC>& descriptions) {
    TYPEDESC value = {};
    value.vt = TypeOf(parameter.type);
    if (value.vt == VT_SAFEARRAY) {
      TYPEDESC& element = descriptions.emplace_back();
      element.vt = parameter.type == ValueType::kByteArray ? VT_UI1 : VT_BSTR;
      value.lptdesc = &element;
    } else if (value.vt == VT_USERDEFINED) {
      value.hreftype = Refer(type, parameter.user_type);
    }
    ELEMDESC element = {};
    element.paramdesc.wParamFlags = FlagsOf(parameter.direction);
    element.tdesc = value;
    if (parameter.direction != Direction::kIn) {
      element.tdesc = {};
      element.tdesc.vt = VT_PTR;
      element.tdesc.lptdesc = &descriptions.emplace_back(value);
    }
    return element;
  }

  void FillClass(const interface_schema::ComponentClass& described) {
    ICreateTypeInfo* const type = Type(described.name);
    Do([&] { return type->SetTypeFlags(TYPEFLAG_FCANCREATE); });
    const HREFTYPE implemented = Refer(type, described.default_interface->name);
    Do([&] { return type->AddImplType(0, implemented); });
    Do([&] { return type->SetImplTypeFlags(0, IMPLTYPEFLAG_FDEFAULT); });
    Do([&] { return type->LayOut(); });
  }

  HRESULT status_ = S_OK;
  ComPointer<ICreateTypeLib2> library_;
  std::map<std::wstring, ComPointer<ICreateTypeInfo>> types_;
};

}  // namespace

HRESULT WriteTypeLibrary(const Library& described, const wchar_t* path) {
  return Writer().Write(described, path);
}

}  // namespace type_library
