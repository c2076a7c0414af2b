// Late-bound calls, through a client's object and directly.

#include <oleauto.h>

#include <cstring>

#include "platform/linux/type_library.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

using sample::Colour;

// Arguments in declaration order.
class Arguments {
 public:
  ~Arguments() {
    for (VARIANT& value : values_) VariantClear(&value);
  }
  VARIANT& Add(VARTYPE type) {
    VARIANT value{};
    value.vt = type;
    values_.insert(values_.begin(), value);
    return values_.front();
  }
  Arguments& Long(LONG value) {
    Add(VT_I4).lVal = value;
    return *this;
  }
  Arguments& Text(const wchar_t* value) {
    Add(VT_BSTR).bstrVal = SysAllocString(value);
    return *this;
  }
  template <typename T>
  Arguments& Reference(VARTYPE type, T* place) {
    Add(type | VT_BYREF).byref = place;
    return *this;
  }
  DISPPARAMS Parameters() {
    return {values_.data(), names_.empty() ? nullptr : names_.data(),
            static_cast<UINT>(values_.size()), static_cast<UINT>(names_.size())};
  }
  // The ids of the last arguments added, last first.
  std::vector<DISPID> names_;

 private:
  std::vector<VARIANT> values_;
};

struct InfoReleaser {
  void operator()(ITypeInfo* info) const { info->Release(); }
};

class LateBound : public ComponentTest {
 protected:
  void SetUp() override {
    ComponentTest::SetUp();
    void* object = nullptr;
    ASSERT_EQ(sample::CreateDirectly(sample::kInterfaceIdV3, &object), S_OK);
    object_.reset(static_cast<sample::ISample_v3*>(object));
    info_.reset(linux_host::MakeTypeInfo(*sample::kLibrary.component->default_interface));
  }

  HRESULT Invoke(DISPID id, Arguments& arguments, VARIANT* result = nullptr, UINT* bad = nullptr,
                 EXCEPINFO* exception = nullptr, WORD flags = DISPATCH_METHOD) {
    DISPPARAMS parameters = arguments.Parameters();
    return info_->Invoke(object_.get(), id, flags, &parameters, result, exception, bad);
  }

  SamplePointer object_;
  std::unique_ptr<ITypeInfo, InfoReleaser> info_;
};

DISPID IdOf(ITypeInfo* info, const wchar_t* name) {
  std::wstring text = name;
  OLECHAR* names[] = {text.data()};
  DISPID id = 0;
  const HRESULT status = info->GetIDsOfNames(names, 1, &id);
  EXPECT_EQ(FAILED(status), id == DISPID_UNKNOWN) << status;
  return id;
}

TEST_F(LateBound, NamesGiveTheIdsOfTheirInterface) {
  EXPECT_EQ(IdOf(info_.get(), L"Echo"), 1);
  EXPECT_EQ(IdOf(info_.get(), L"eCHO"), 1);
  EXPECT_EQ(IdOf(info_.get(), L"Sum"), 10);
  EXPECT_EQ(IdOf(info_.get(), L"Fail"), 20) << "the later version's of two equal names";
  EXPECT_EQ(IdOf(info_.get(), L"Ech"), DISPID_UNKNOWN);
  EXPECT_EQ(IdOf(info_.get(), L"Echoo"), DISPID_UNKNOWN);
  const std::unique_ptr<ITypeInfo, InfoReleaser> v1(
      linux_host::MakeTypeInfo(*sample::kLibrary.interfaces[2]));
  EXPECT_EQ(IdOf(v1.get(), L"Fail"), 5);
  EXPECT_EQ(IdOf(v1.get(), L"Sum"), DISPID_UNKNOWN);
}

TEST_F(LateBound, ParameterNamesGiveTheirPositions) {
  std::wstring texts[] = {L"sum", L"B", L"a", L"nothing"};
  OLECHAR* names[] = {texts[0].data(), texts[1].data(), texts[2].data(), texts[3].data()};
  DISPID ids[4];
  EXPECT_EQ(info_->GetIDsOfNames(names, 3, ids), S_OK);
  EXPECT_EQ(ids[0], 10);
  EXPECT_EQ(ids[1], 1);
  EXPECT_EQ(ids[2], 0);
  EXPECT_EQ(info_->GetIDsOfNames(names, 4, ids), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(ids[3], DISPID_UNKNOWN);
}

TEST_F(LateBound, EveryTypeOfArgumentArrives) {
  BSTR text = nullptr;
  LONG number = 0;
  SHORT small = 0;
  CHAR tiny = 0;
  LONGLONG wide = 0;
  Arguments arguments;
  arguments.Text(L"name").Long(-7);
  arguments.Add(VT_I2).iVal = -300;
  arguments.Add(VT_I1).cVal = static_cast<CHAR>(-8);
  arguments.Add(VT_I8).llVal = -5'000'000'000;
  arguments.Long(272);
  arguments.Reference(VT_BSTR, &text)
      .Reference(VT_I4, &number)
      .Reference(VT_I2, &small)
      .Reference(VT_I1, &tiny)
      .Reference(VT_I8, &wide);
  VARIANT result{};
  ASSERT_EQ(Invoke(1, arguments, &result), S_OK);
  EXPECT_EQ(ToWide(text), L"name");
  SysFreeString(text);
  EXPECT_EQ(number, -7);
  EXPECT_EQ(small, -300);
  EXPECT_EQ(tiny, static_cast<CHAR>(-8));
  EXPECT_EQ(wide, -5'000'000'000);
  EXPECT_EQ(result.vt, VT_I4);
  EXPECT_EQ(result.lVal, 272);
}

TEST_F(LateBound, ArgumentsOfOtherTypesAreConverted) {
  LONG place = 40;
  VARIANT inner{};
  inner.vt = VT_I2;
  inner.iVal = -2;
  struct Case {
    const char* what;
    VARIANT a;
    LONG sum;
  };
  auto Value = [](VARTYPE type, auto set) {
    VARIANT value{};
    value.vt = type;
    set(value);
    return value;
  };
  const OwnedString digits = MakeString(L" 12 ");
  const Case cases[] = {
      {"a short", Value(VT_I2, [](VARIANT& v) { v.iVal = -5; }), -4},
      {"a byte", Value(VT_UI1, [](VARIANT& v) { v.bVal = 200; }), 201},
      {"a wide number", Value(VT_I8, [](VARIANT& v) { v.llVal = 9; }), 10},
      {"a truth", Value(VT_BOOL, [](VARIANT& v) { v.boolVal = VARIANT_TRUE; }), 0},
      {"digits", Value(VT_BSTR, [&](VARIANT& v) { v.bstrVal = digits.get(); }), 13},
      {"a reference", Value(VT_I4 | VT_BYREF, [&](VARIANT& v) { v.plVal = &place; }), 41},
      {"a value by reference",
       Value(VT_VARIANT | VT_BYREF, [&](VARIANT& v) { v.pvarVal = &inner; }), -1},
      {"nothing", Value(VT_EMPTY, [](VARIANT&) {}), 1},
  };
  for (const Case& c : cases) {
    VARIANT arguments[2] = {{}, c.a};
    arguments[0].vt = VT_I4;
    arguments[0].lVal = 1;
    DISPPARAMS parameters = {arguments, nullptr, 2, 0};
    VARIANT result{};
    ASSERT_EQ(
        info_->Invoke(object_.get(), 10, DISPATCH_METHOD, &parameters, &result, nullptr, nullptr),
        S_OK)
        << c.what;
    EXPECT_EQ(result.lVal, c.sum) << c.what;
  }
}

TEST_F(LateBound, OutputsGoIntoValuesOfNoFixedType) {
  const OwnedArray bytes = MakeBytes({1, 2, 3});
  Arguments arguments;
  VARIANT received{};
  received.vt = VT_BSTR;
  received.bstrVal = SysAllocString(L"replaced");
  arguments.Add(VT_ARRAY | VT_UI1 | VT_BYREF).pparray = new SAFEARRAY*(bytes.get());
  SAFEARRAY** place = arguments.Parameters().rgvarg[0].pparray;
  arguments.Reference(VT_VARIANT, &received);
  VARIANT result{};
  ASSERT_EQ(Invoke(2, arguments, &result), S_OK);
  delete place;
  EXPECT_EQ(received.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(ToBytes(received.parray), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(result.lVal, 3);
  VariantClear(&received);
}

TEST_F(LateBound, NamedArgumentsMayStandInAnyOrder) {
  LONG direct = 0;
  ASSERT_EQ(object_->Sum(5, 3, &direct), S_OK);
  Arguments both;
  both.Long(3).Long(5);  // rgvarg: 5, 3
  both.names_ = {0, 1};
  VARIANT result{};
  ASSERT_EQ(Invoke(10, both, &result), S_OK);
  EXPECT_EQ(result.lVal, direct);
  Arguments unknown;
  unknown.Long(3).Long(5);
  unknown.names_ = {0, 9};
  UINT bad = 77;
  EXPECT_EQ(Invoke(10, unknown, &result, &bad), DISP_E_PARAMNOTFOUND);
  EXPECT_EQ(bad, 1u);
}

TEST_F(LateBound, WrongCallsAreRefusedWithTheArgumentThatIsWrong) {
  UINT bad = 77;
  VARIANT result{};
  Arguments none;
  EXPECT_EQ(Invoke(9, none), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Invoke(8, none, &result, &bad, nullptr, DISPATCH_PROPERTYGET), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Invoke(10, none), DISP_E_BADPARAMCOUNT);
  Arguments three;
  three.Long(1).Long(2).Long(3);
  EXPECT_EQ(Invoke(10, three), DISP_E_BADPARAMCOUNT);
  Arguments text;
  text.Text(L"twelve").Long(2);
  EXPECT_EQ(Invoke(10, text, &result, &bad), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(bad, 1u) << "counted from the last argument";
  Arguments large;
  large.Long(1);
  large.Add(VT_I8).llVal = 1LL << 40;
  EXPECT_EQ(Invoke(10, large, &result, &bad), DISP_E_OVERFLOW);
  EXPECT_EQ(bad, 0u);
  Arguments strings;
  strings.Add(VT_ARRAY | VT_BSTR).parray = SafeArrayCreateVector(VT_BSTR, 0, 1);
  SAFEARRAY* received = nullptr;
  strings.Reference(VT_ARRAY | VT_UI1, &received);
  EXPECT_EQ(Invoke(2, strings, &result, &bad), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(bad, 1u);
  Arguments record;
  sample::Status status;
  record.Long(1).Reference(VT_RECORD, &status);
  EXPECT_EQ(Invoke(4, record), E_NOTIMPL);
}

TEST_F(LateBound, AFailingMethodIsAnException) {
  Arguments arguments;
  arguments.Long(E_FAIL);
  EXCEPINFO exception{};
  VARIANT result{};
  EXPECT_EQ(Invoke(5, arguments, &result, nullptr, &exception), DISP_E_EXCEPTION);
  EXPECT_EQ(exception.scode, E_FAIL);
  EXPECT_EQ(result.vt, VT_EMPTY);
}

TEST_F(LateBound, AClientsObjectNeedsTheLibraryRegistered) {
  ServerThread server;
  const SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  std::wstring name = L"Sum";
  OLECHAR* names[] = {name.data()};
  DISPID id = 0;
  EXPECT_EQ(client->GetIDsOfNames(IID_IUnknown, names, 1, 0, &id), TYPE_E_LIBNOTREGISTERED);

  ITypeLib* library = linux_host::MakeTypeLibrary(sample::kLibrary);
  ASSERT_EQ(RegisterTypeLib(library, L"/proc/self/exe", nullptr), S_OK);
  library->Release();
  ASSERT_EQ(client->GetIDsOfNames(IID_IUnknown, names, 1, 0, &id), S_OK);
  Arguments arguments;
  arguments.Long(40).Long(2);
  DISPPARAMS parameters = arguments.Parameters();
  VARIANT result{};
  ASSERT_EQ(
      client->Invoke(id, IID_IUnknown, 0, DISPATCH_METHOD, &parameters, &result, nullptr, nullptr),
      S_OK);
  EXPECT_EQ(result.lVal, 42);
  UINT count = 0;
  EXPECT_EQ(client->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1u);
  ITypeInfo* info = nullptr;
  EXPECT_EQ(client->GetTypeInfo(1, 0, &info), DISP_E_BADINDEX);
  ASSERT_EQ(client->GetTypeInfo(0, 0, &info), S_OK);
  info->Release();
}

}  // namespace
}  // namespace component_test
