// Late-bound calls, through a client's object and directly.

#include <oleauto.h>

#include <algorithm>

#include "platform/linux/com/type_library.h"
#include "tests/unit/platform/component/component_fixture.h"

namespace component_test {
namespace {

VARIANT Number(VARTYPE type, LONGLONG number) {
  VARIANT value{};
  value.vt = type;
  value.llVal = number;
  return value;
}
VARIANT Long(LONG number) { return Number(VT_I4, number); }

VARIANT Text(const wchar_t* text) {
  VARIANT value{};
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(text);
  return value;
}

VARIANT Reference(VARTYPE type, void* place) {
  VARIANT value{};
  value.vt = static_cast<VARTYPE>(type | VT_BYREF);
  value.byref = place;
  return value;
}

// What a call leaves; in `bad_argument` 77 when nothing is wrong with one.
struct Outcome {
  HRESULT status = E_UNEXPECTED;
  VARIANT result{};
  UINT bad_argument = 77;
  EXCEPINFO exception{};
};

using InfoPointer = std::unique_ptr<ITypeInfo, Releaser>;
using LibraryPointer = std::unique_ptr<ITypeLib, Releaser>;

constexpr DISPID kEcho = 1;
constexpr DISPID kEchoBytes = 2;
constexpr DISPID kGetStatus = 4;
constexpr DISPID kFail = 5;
constexpr DISPID kCountObjects = 8;
constexpr DISPID kSubtract = 10;

class LateBound : public ComponentTest {
 protected:
  void SetUp() override {
    void* object = nullptr;
    ASSERT_EQ(sample::CreateDirectly(sample::kInterfaceIdV3, &object), S_OK);
    object_.reset(static_cast<sample::ISample_v3*>(object));
  }

  // With arguments in declaration order, which are freed; `names` are the parameters of the last
  // ones, last first.
  Outcome Invoke(DISPID id, std::vector<VARIANT> arguments, std::vector<DISPID> names = {},
                 WORD flags = DISPATCH_METHOD) {
    std::reverse(arguments.begin(), arguments.end());
    DISPPARAMS parameters = {arguments.data(), names.data(), static_cast<UINT>(arguments.size()),
                             static_cast<UINT>(names.size())};
    Outcome outcome;
    outcome.status = info_->Invoke(object_.get(), id, flags, &parameters, &outcome.result,
                                   &outcome.exception, &outcome.bad_argument);
    for (VARIANT& argument : arguments) VariantClear(&argument);
    return outcome;
  }

  SamplePointer object_;
  const InfoPointer info_{linux_host::MakeTypeInfo(*sample::kLibrary.component->default_interface)};
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
  const std::pair<const wchar_t*, DISPID> cases[] = {{L"eCHO", kEcho},
                                                     {L"Subtract", kSubtract},
                                                     {L"Fail", 20},  // the later of the two
                                                     {L"Ech", -1},
                                                     {L"Echoo", DISPID_UNKNOWN}};
  for (const auto& [name, id] : cases) EXPECT_EQ(IdOf(info_.get(), name), id);
  const InfoPointer v1(linux_host::MakeTypeInfo(*sample::kLibrary.interfaces[2]));
  EXPECT_EQ(IdOf(v1.get(), L"Fail"), kFail);
  EXPECT_EQ(IdOf(v1.get(), L"Subtract"), DISPID_UNKNOWN);
}

TEST_F(LateBound, EveryTypeOfArgumentArrives) {
  BSTR text = nullptr;
  LONG number = 0;
  SHORT small = 0;
  CHAR tiny = 0;
  LONGLONG wide = 0;
  const Outcome outcome =
      Invoke(kEcho, {Text(L"name"), Long(-7), Number(VT_I2, -300), Number(VT_I1, -8),
                     Number(VT_I8, -5'000'000'000), Long(272), Reference(VT_BSTR, &text),
                     Reference(VT_I4, &number), Reference(VT_I2, &small), Reference(VT_I1, &tiny),
                     Reference(VT_I8, &wide)});
  ASSERT_EQ(outcome.status, S_OK);
  EXPECT_EQ(ToWide(text), L"name");
  SysFreeString(text);
  EXPECT_EQ(number, -7);
  EXPECT_EQ(small, -300);
  EXPECT_EQ(tiny, static_cast<CHAR>(-8));
  EXPECT_EQ(wide, -5'000'000'000);
  EXPECT_EQ(outcome.result.vt, VT_I4);
  EXPECT_EQ(outcome.result.lVal, 272);
}

TEST_F(LateBound, OutputsGoIntoValuesOfNoFixedType) {
  const OwnedArray bytes = MakeBytes({1, 2, 3});
  SAFEARRAY* place = bytes.get();
  VARIANT received = Text(L"replaced");
  const Outcome outcome =
      Invoke(kEchoBytes, {Reference(VT_ARRAY | VT_UI1, &place), Reference(VT_VARIANT, &received)});
  ASSERT_EQ(outcome.status, S_OK);
  ASSERT_EQ(received.vt, VT_ARRAY | VT_UI1);
  EXPECT_EQ(ToBytes(OwnedArray(received.parray)), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(outcome.result.lVal, 3);
}

TEST_F(LateBound, NamedArgumentsMayStandInAnyOrder) {
  EXPECT_EQ(Invoke(kSubtract, {Text(L" 3 "), Number(VT_I2, 5)}, {0, 1}).result.lVal, 5 - 3);
  EXPECT_EQ(Invoke(kSubtract, {Long(3), Long(5)}, {1, 0}).result.lVal, 3 - 5);
}

TEST_F(LateBound, WrongCallsAreRefusedWithTheArgumentThatIsWrong) {
  SAFEARRAY* received = nullptr;
  VARIANT strings{};
  strings.vt = VT_ARRAY | VT_BSTR;
  strings.parray = SafeArrayCreateVector(VT_BSTR, 0, 1);
  sample::Status status;
  const struct {
    const char* what;
    DISPID id;
    std::vector<VARIANT> arguments;
    std::vector<DISPID> names;
    HRESULT status;
    UINT bad_argument;  // counted from the last one
  } cases[] = {
      {"no such method", 9, {}, {}, DISP_E_MEMBERNOTFOUND, 77},
      {"too few", kSubtract, {}, {}, DISP_E_BADPARAMCOUNT, 77},
      {"too many", kSubtract, {Long(1), Long(2), Long(3)}, {}, DISP_E_BADPARAMCOUNT, 77},
      {"text", kSubtract, {Text(L"twelve"), Long(2)}, {}, DISP_E_TYPEMISMATCH, 1},
      {"too large", kSubtract, {Long(1), Number(VT_I8, 1LL << 40)}, {}, DISP_E_OVERFLOW, 0},
      {"no such name", kSubtract, {Long(3), Long(5)}, {0, 9}, DISP_E_PARAMNOTFOUND, 1},
      {"strings for bytes",
       kEchoBytes,
       {strings, Reference(VT_ARRAY | VT_UI1, &received)},
       {},
       DISP_E_TYPEMISMATCH,
       1},
      {"a record", kGetStatus, {Long(1), Reference(VT_RECORD, &status)}, {}, E_NOTIMPL, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Outcome outcome = Invoke(c.id, c.arguments, c.names);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.bad_argument, c.bad_argument);
  }
  EXPECT_EQ(Invoke(kCountObjects, {}, {}, DISPATCH_PROPERTYGET).status, DISP_E_MEMBERNOTFOUND);
}

TEST_F(LateBound, AFailingMethodIsAnException) {
  const Outcome outcome = Invoke(kFail, {Long(E_FAIL)});
  EXPECT_EQ(outcome.status, DISP_E_EXCEPTION);
  EXPECT_EQ(outcome.exception.scode, E_FAIL);
  EXPECT_EQ(outcome.result.vt, VT_EMPTY);
}

TEST_F(LateBound, OnlyARegisteredLibraryOfThisProgramIsLoadedById) {
  ITypeLib* library = nullptr;
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  const LibraryPointer own(linux_host::MakeTypeLibrary(sample::kLibrary));
  ASSERT_EQ(RegisterTypeLib(own.get(), L"/proc/self/exe", nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 2, 0, 0x409, &library), TYPE_E_LIBNOTREGISTERED);
  ASSERT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0, &library), S_OK) << "in another locale";
  library->Release();
  ASSERT_EQ(RegisterTypeLib(own.get(), L"/nonexistent/server", nullptr), S_OK);
  EXPECT_EQ(LoadRegTypeLib(sample::kLibraryId, 1, 0, 0x409, &library), TYPE_E_CANTLOADLIBRARY);
}

TEST_F(LateBound, AClientsObjectTakesItsTypesFromTheRegisteredLibrary) {
  ServerThread server;
  const SamplePointer client = CreateSample();
  ASSERT_NE(client, nullptr);
  ITypeInfo* info = nullptr;
  EXPECT_EQ(client->GetTypeInfo(0, 0, &info), TYPE_E_LIBNOTREGISTERED);
  const LibraryPointer library(linux_host::MakeTypeLibrary(sample::kLibrary));
  ASSERT_EQ(RegisterTypeLib(library.get(), L"/proc/self/exe", nullptr), S_OK);
  EXPECT_EQ(client->GetTypeInfo(1, 0, &info), DISP_E_BADINDEX);
  ASSERT_EQ(client->GetTypeInfo(0, 0, &info), S_OK);
  info->Release();
  std::wstring name = L"Subtract";
  OLECHAR* names[] = {name.data()};
  DISPID id = 0;
  ASSERT_EQ(client->GetIDsOfNames(IID_IUnknown, names, 1, 0, &id), S_OK);
  VARIANT arguments[] = {Long(2), Long(44)};
  DISPPARAMS parameters = {arguments, nullptr, 2, 0};
  VARIANT result{};
  ASSERT_EQ(
      client->Invoke(id, IID_IUnknown, 0, DISPATCH_METHOD, &parameters, &result, nullptr, nullptr),
      S_OK);
  EXPECT_EQ(result.lVal, 42);
}

}  // namespace
}  // namespace component_test
