// The type library in the service's executable, as clients and their tools read it, against the
// description of the interface.
#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>

#include <map>
#include <string>
#include <vector>

#include "api/interface_table.h"
#include "platform/windows/com_pointer.h"
#include "tests/system_windows/automation.h"
#include "tests/system_windows/programs.h"

namespace system_windows {
namespace {

using interface_schema::Direction;
using interface_schema::FieldType;
using interface_schema::Method;
using interface_schema::Parameter;
using interface_schema::ValueType;
using windows_host::ComPointer;

constexpr GUID kNoId = {};

// Of a type's member, or of the library's: their methods for it look alike.
template <typename Described>
void ExpectDocumented(Described* described, LONG member, const std::wstring& name,
                      const std::wstring& help) {
  Bstr name_read;
  Bstr help_read;
  described->GetDocumentation(member, name_read.Receive(), help_read.Receive(), nullptr, nullptr);
  EXPECT_EQ(name_read.Text(), name);
  EXPECT_EQ(help_read.Text(), help);
}

std::wstring NameOf(ITypeInfo* type, HREFTYPE reference) {
  ComPointer<ITypeInfo> target;
  Bstr name;
  if (FAILED(type->GetRefTypeInfo(reference, target.Receive()))) return L"(unknown)";
  target->GetDocumentation(MEMBERID_NIL, name.Receive(), nullptr, nullptr, nullptr);
  return name.Text();
}

std::wstring NameOfBase(ITypeInfo* type) {
  HREFTYPE reference = 0;
  type->GetRefTypeOfImplType(0, &reference);
  return NameOf(type, reference);
}

// The type of a parameter without what says that it is an output.
std::vector<VARTYPE> Types(const TYPEDESC* described) {
  std::vector<VARTYPE> types = {described->vt};
  while (types.back() == VT_PTR || types.back() == VT_SAFEARRAY) {
    described = described->lptdesc;
    types.push_back(described->vt);
  }
  return types;
}

std::vector<VARTYPE> ExpectedTypes(const Parameter& parameter) {
  static const std::map<ValueType, std::vector<VARTYPE>> kTypes = {
      {ValueType::kBstr, {VT_BSTR}},
      {ValueType::kLong, {VT_I4}},
      {ValueType::kShort, {VT_I2}},
      {ValueType::kChar, {VT_I1}},
      {ValueType::kInt64, {VT_I8}},
      {ValueType::kByteArray, {VT_SAFEARRAY, VT_UI1}},
      {ValueType::kStringArray, {VT_SAFEARRAY, VT_BSTR}},
      {ValueType::kEnumeration, {VT_USERDEFINED}},
      {ValueType::kRecord, {VT_USERDEFINED}}};
  std::vector<VARTYPE> types = kTypes.at(parameter.type);
  if (parameter.direction != Direction::kIn) types.insert(types.begin(), VT_PTR);
  return types;
}

USHORT ExpectedFlags(Direction direction) {
  if (direction == Direction::kIn) return PARAMFLAG_FIN;
  return direction == Direction::kOut ? PARAMFLAG_FOUT : PARAMFLAG_FOUT | PARAMFLAG_FRETVAL;
}

// The library's types, one after the other.
class TypeLibrary : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(LoadTypeLib(ServiceProgram().c_str(), library_.Receive()), S_OK);
  }

  // The next type is this one. A dual interface is listed with its late-bound side, which leads to
  // the other.
  void Next(TYPEKIND kind, const std::wstring& name, const GUID& id, const wchar_t* help) {
    ComPointer<ITypeInfo> listed;
    ASSERT_EQ(library_->GetTypeInfo(next_++, listed.Receive()), S_OK);
    HREFTYPE dual = 0;
    if (kind != TKIND_INTERFACE) {
      type_ = std::move(listed);
    } else if (SUCCEEDED(listed->GetRefTypeOfImplType(static_cast<UINT>(-1), &dual))) {
      ASSERT_EQ(listed->GetRefTypeInfo(dual, type_.Receive()), S_OK);
    }
    ASSERT_TRUE(type_);
    TYPEATTR* read = nullptr;
    ASSERT_EQ(type_->GetTypeAttr(&read), S_OK);
    attributes_ = *read;
    type_->ReleaseTypeAttr(read);
    EXPECT_EQ(attributes_.typekind, kind);
    EXPECT_TRUE(attributes_.guid == id);
    ExpectDocumented(type_.Get(), MEMBERID_NIL, name, help);
  }

  void ExpectMethod(UINT index, const Method& expected) {
    FUNCDESC* read = nullptr;
    ASSERT_EQ(type_->GetFuncDesc(index, &read), S_OK);
    EXPECT_EQ(read->oVft, static_cast<SHORT>(expected.slot * sizeof(void*)));
    EXPECT_EQ(read->memid, expected.dispatch_id);
    EXPECT_EQ(read->elemdescFunc.tdesc.vt, VT_HRESULT);
    ExpectDocumented(type_.Get(), read->memid, expected.name, expected.help);
    BSTR names[16] = {};
    UINT count = 0;
    type_->GetNames(read->memid, names, 16, &count);
    ASSERT_EQ(static_cast<std::size_t>(read->cParams), expected.parameters.size());
    for (std::size_t i = 0; i < expected.parameters.size(); ++i) {
      const Parameter& parameter = expected.parameters[i];
      const ELEMDESC& element = read->lprgelemdescParam[i];
      EXPECT_EQ(std::wstring(names[i + 1]), parameter.name);
      EXPECT_EQ(element.paramdesc.wParamFlags, ExpectedFlags(parameter.direction));
      EXPECT_EQ(Types(&element.tdesc), ExpectedTypes(parameter));
      if (parameter.user_type == nullptr) continue;
      const bool output = parameter.direction != Direction::kIn;
      const TYPEDESC& value = output ? *element.tdesc.lptdesc : element.tdesc;
      EXPECT_EQ(NameOf(type_.Get(), value.hreftype), parameter.user_type);
    }
    for (const BSTR name : names) SysFreeString(name);
    type_->ReleaseFuncDesc(read);
  }

  // `value` of a constant, or the place of a field.
  void ExpectVariable(UINT index, const wchar_t* name, const wchar_t* help, VARTYPE type,
                      std::int64_t value) {
    VARDESC* read = nullptr;
    ASSERT_EQ(type_->GetVarDesc(index, &read), S_OK);
    ExpectDocumented(type_.Get(), read->memid, name, help);
    EXPECT_EQ(read->elemdescVar.tdesc.vt, type);
    EXPECT_EQ(read->varkind == VAR_CONST ? V_I4(read->lpvarValue) : LONG(read->oInst), value);
    type_->ReleaseVarDesc(read);
  }

  ComPointer<ITypeLib> library_;
  ComPointer<ITypeInfo> type_;
  TYPEATTR attributes_ = {};
  UINT next_ = 0;
};

TEST_F(TypeLibrary, OfTheExecutableIsWhatTheInterfaceIsDescribedAs) {
  TLIBATTR* read = nullptr;
  ASSERT_EQ(library_->GetLibAttr(&read), S_OK);
  EXPECT_TRUE(read->guid == *api::kLibrary.id);
  EXPECT_EQ(read->wMajorVerNum, api::kLibrary.major_version);
  EXPECT_EQ(read->wMinorVerNum, api::kLibrary.minor_version);
  EXPECT_EQ(read->lcid, api::kLibrary.locale);
  library_->ReleaseTLibAttr(read);
  ExpectDocumented(library_.Get(), -1, api::kLibrary.name, api::kLibrary.help);

  const auto& component = *api::kLibrary.component;
  Next(TKIND_COCLASS, component.name, *component.id, component.help);
  EXPECT_EQ(attributes_.wTypeFlags, TYPEFLAG_FCANCREATE);
  EXPECT_EQ(attributes_.cImplTypes, 1);
  EXPECT_EQ(NameOfBase(type_.Get()), component.default_interface->name);
  for (const auto* expected : api::kLibrary.interfaces) {
    Next(TKIND_INTERFACE, expected->name, *expected->id, expected->help);
    EXPECT_EQ(attributes_.wTypeFlags, TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION |
                                          TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FDISPATCHABLE);
    EXPECT_EQ(NameOfBase(type_.Get()),
              expected->base != nullptr ? expected->base->name : L"IDispatch");
    EXPECT_EQ(attributes_.cFuncs, expected->methods.size());
    for (UINT i = 0; i < expected->methods.size(); ++i) ExpectMethod(i, expected->methods[i]);
  }
  for (const auto& type : api::kLibrary.types) {
    UINT index = 0;
    if (type.record != nullptr) {
      Next(TKIND_RECORD, type.record->name, *type.record->id, type.record->help);
      EXPECT_EQ(attributes_.cbSizeInstance, type.record->size);
      for (const auto& field : type.record->fields) {
        ExpectVariable(index++, field.name, L"",
                       field.type == FieldType::kUnsigned8 ? VT_UI1 : VT_I2, field.offset);
      }
    } else {
      const auto& expected = *type.enumeration;
      const std::wstring unnamed = std::wstring(L"__unnamed_") + expected.name;
      Next(TKIND_ALIAS, expected.name, *expected.id, expected.help);
      EXPECT_EQ(attributes_.cbSizeInstance, 4u);
      EXPECT_EQ(NameOf(type_.Get(), attributes_.tdescAlias.hreftype), unnamed);
      Next(TKIND_ENUM, unnamed, kNoId, L"");
      EXPECT_EQ(attributes_.cbSizeInstance, 4u);
      for (const auto& constant : expected.constants) {
        ExpectVariable(index++, constant.name, constant.help, VT_INT, constant.value);
      }
    }
    EXPECT_EQ(attributes_.cVars, index);
  }
  EXPECT_EQ(library_->GetTypeInfoCount(), next_);
}

TEST(TypeLibraryBytes, HelpTextsHoldTheApostropheAsOneByteOfTheLibrarysCodePage) {
  const HMODULE program =
      LoadLibraryExW(ServiceProgram().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  ASSERT_NE(program, nullptr);
  const HRSRC found = FindResourceW(program, MAKEINTRESOURCEW(1), L"TYPELIB");
  ASSERT_NE(found, nullptr);
  const auto* bytes = static_cast<const char*>(LockResource(LoadResource(program, found)));
  const std::string library(bytes, SizeofResource(program, found));
  EXPECT_NE(library.find("Mode used to turn the Wirefox\x92s LED off"), std::string::npos);
  FreeLibrary(program);
}

}  // namespace
}  // namespace system_windows
