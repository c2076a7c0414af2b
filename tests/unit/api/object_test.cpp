// The object as a component: its interfaces, its counting, and aggregation.
#include <cstring>
#include <map>

#include "api/class_factory.h"
#include "api/interface_table.h"
#include "tests/unit/api/api_fixture.h"

namespace {

constexpr GUID kOtherInterface = {0x1234, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

// Where a method stands in the table of virtual operations. For both compilers its pointer holds
// one more than its offset there (Itanium C++ ABI).
template <typename Function>
std::uint32_t SlotOf(Function method) {
  static_assert(sizeof(method) == 2 * sizeof(void*));
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &method, sizeof(offset));
  return static_cast<std::uint32_t>((offset - 1) / sizeof(void*));
}

TEST(Interface, MethodsStandWhereTheLibraryTellsClientsThatTheyAre) {
  constexpr auto by_session = static_cast<HRESULT (STDMETHODCALLTYPE ITzWirefox_v3::*)(
      TzProgrammingMode, LONG, CHAR, LONG, LONG, LONG, std::int64_t, TzErrorCode*)>(
      &ITzWirefox_v3::PortAcquire);
  const std::map<std::uint32_t, std::wstring> compiled = {
      {SlotOf(&ITzWirefox_v1::GetVersion), L"GetVersion"},
      {SlotOf(&ITzWirefox_v1::GetDevicesChangedLocation), L"GetDevicesChangedLocation"},
      {SlotOf(&ITzWirefox_v1::EnumerateWirefoxs), L"EnumerateWirefoxs"},
      {SlotOf(&ITzWirefox_v1::EnumerateDevices), L"EnumerateDevices"},
      {SlotOf(&ITzWirefox_v1::SetLedState), L"SetLedState"},
      {SlotOf(&ITzWirefox_v1::VisualIdentify), L"VisualIdentify"},
      {SlotOf(&ITzWirefox_v1::GetWirefoxStatus), L"GetWirefoxStatus"},
      {SlotOf(&ITzWirefox_v1::SetTimeOut), L"SetTimeOut"},
      {SlotOf(&ITzWirefox_v1::SetJtagClock), L"SetJtagClock"},
      {SlotOf(&ITzWirefox_v1::SetMode), L"SetMode"},
      {SlotOf(&ITzWirefox_v1::SetVTarg), L"SetVTarg"},
      {SlotOf(&ITzWirefox_v1::AcquireDevice), L"AcquireDevice"},
      {SlotOf(&ITzWirefox_v1::ReleaseDevice), L"ReleaseDevice"},
      {SlotOf(&ITzWirefox_v1::SendJtagPacket), L"SendJtagPacket"},
      {SlotOf(&ITzWirefox_v1::SendSwdPacket), L"SendSwdPacket"},
      {SlotOf(&ITzWirefox_v1::RequestSwvPackets), L"RequestSwvPackets"},
      {SlotOf(&ITzWirefox_v1::BulkTransfer), L"BulkTransfer"},
      {SlotOf(&ITzWirefox_v1::PortAcquire), L"PortAcquire"},
      {SlotOf(&ITzWirefox_v1::GetPortAcquireStatus), L"GetPortAcquireStatus"},
      {SlotOf(&ITzWirefox_v1::ToggleXres), L"ToggleXres"},
      {SlotOf(&ITzWirefox_v1::SetupSWV), L"SetupSWV"},
      {SlotOf(&ITzWirefox_v1::RequestEtmPackets), L"RequestEtmPackets"},
      {SlotOf(&ITzWirefox_v2::SendI2CPacket), L"SendI2CPacket"},
      {SlotOf(by_session), L"PortAcquire"},
      {SlotOf(&ITzWirefox_v3::GetHwRevID), L"GetHwRevID"},
  };
  std::map<std::uint32_t, std::wstring> listed;
  for (const auto* interface_listed : api::kLibrary.interfaces) {
    for (const auto& method : interface_listed->methods) listed[method.slot] = method.name;
  }
  EXPECT_EQ(compiled, listed);
}

class Factory : public ApiTest {
 protected:
  Factory() : factory_(api::TzWirefoxFactory::Create(module_)) {}
  ~Factory() override { factory_->Release(); }

  api::TzWirefoxFactory* factory_;
};

TEST_F(Factory, AllInterfacesOfAnObjectAreOnePointer) {
  void* first = nullptr;
  ASSERT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, &first), S_OK);
  auto* object = static_cast<IUnknown*>(first);
  for (const IID* iid : {&IID_IUnknown, &IID_IDispatch, &api::kInterfaceIdV1, &api::kInterfaceIdV2,
                         &api::kInterfaceIdV3}) {
    void* other = nullptr;
    EXPECT_EQ(object->QueryInterface(*iid, &other), S_OK);
    EXPECT_EQ(other, first);
    object->Release();
  }
  void* none = first;
  EXPECT_EQ(object->QueryInterface(kOtherInterface, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(object->Release(), 0u);
}

TEST_F(Factory, ObjectsAndServerLocksAreCountedAndLoggedUntilTheyEnd) {
  const LONG before = module_.GetLockCount();
  void* created = nullptr;
  ASSERT_EQ(factory_->CreateInstance(nullptr, api::kInterfaceIdV1, &created), S_OK);
  auto* object = static_cast<IUnknown*>(created);
  EXPECT_EQ(TakeLog(), Lines{"[CTzWirefox::CTzWirefox]"});
  EXPECT_EQ(module_.GetLockCount(), before + 1);
  EXPECT_EQ(factory_->LockServer(TRUE), S_OK);
  EXPECT_EQ(module_.GetLockCount(), before + 2);
  EXPECT_EQ(factory_->LockServer(FALSE), S_OK);
  object->AddRef();
  object->Release();
  EXPECT_EQ(module_.GetLockCount(), before + 1);
  object->Release();
  EXPECT_EQ(module_.GetLockCount(), before);
  EXPECT_EQ(TakeLog(), Lines{"[CTzWirefox::~CTzWirefox]"});
}

TEST_F(Factory, RefusedCreationLeavesNothingBehind) {
  const LONG before = module_.GetLockCount();
  void* object = this;
  EXPECT_EQ(factory_->CreateInstance(nullptr, kOtherInterface, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(factory_->CreateInstance(object_, api::kInterfaceIdV3, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(factory_->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(module_.GetLockCount(), before);
  EXPECT_EQ(factory_->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
  ASSERT_EQ(factory_->QueryInterface(IID_IClassFactory, &object), S_OK);
  static_cast<IClassFactory*>(object)->Release();
}

// An outer object that aggregates a client object.
class Outer final : public IUnknown {
 public:
  virtual ~Outer() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    *object = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown)) return inner->QueryInterface(iid, object);
    *object = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }

  IUnknown* inner = nullptr;
  ULONG references = 1;
};

TEST_F(Factory, AggregatedObjectSharesTheIdentityOfItsOuter) {
  const LONG before = module_.GetLockCount();
  Outer outer;
  void* inner = nullptr;
  ASSERT_EQ(factory_->CreateInstance(&outer, IID_IUnknown, &inner), S_OK);
  outer.inner = static_cast<IUnknown*>(inner);
  EXPECT_EQ(outer.references, 1u) << "an aggregated object must not hold its outer";

  void* object = nullptr;
  ASSERT_EQ(outer.QueryInterface(api::kInterfaceIdV2, &object), S_OK);
  EXPECT_EQ(outer.references, 2u);
  auto* wirefox = static_cast<ITzWirefox_v2*>(object);
  void* identity = nullptr;
  ASSERT_EQ(wirefox->QueryInterface(IID_IUnknown, &identity), S_OK);
  EXPECT_EQ(identity, static_cast<IUnknown*>(&outer));
  LONG version = 0;
  EXPECT_EQ(wirefox->GetVersion(&version), S_OK);
  EXPECT_EQ(version, 0x02000200);
  outer.Release();
  EXPECT_EQ(wirefox->Release(), 1u);

  EXPECT_EQ(outer.inner->Release(), 0u);
  EXPECT_EQ(module_.GetLockCount(), before);
}

TEST_F(Factory, MissingPlacesForOutputsAreRefusedBeforeAnythingIsDone) {
  AddProbe(L"P1");
  EXPECT_EQ(object_->GetVersion(nullptr), E_POINTER);
  EXPECT_EQ(object_->SetMode(Text(L"P1"), TzTransferMode::JTAG, 0, OwnPid(), nullptr), E_POINTER);
  EXPECT_EQ(object_->SendJtagPacket(nullptr, 0, 1, nullptr, &error_), E_POINTER);
  EXPECT_EQ(object_->AcquireDevice(Text(L"P1"), 0, OwnPid(), nullptr, &error_), E_POINTER);
  EXPECT_EQ(TakeLog(), Lines{});
  EXPECT_EQ(device_->TakeCalls(), Calls{});
}

using Slot = void (*)();

// The slots of an object's table of virtual operations, as a client compiled long ago calls them.
Slot SlotOf(void* object, std::size_t index) { return (*static_cast<Slot**>(object))[index]; }

TEST_F(ApiTest, EarlyBoundCallsGoBySlotNumbersOfTheTable) {
  AddProbe(L"P1");
  void* object = static_cast<ITzWirefox_v3*>(object_);
  const Text name(L"P1");
  LONG revision = 0;
  Result result;

  using Acquire = HRESULT(STDMETHODCALLTYPE*)(void*, BSTR, LONG, LONG, std::int64_t*, TzErrorCode*);
  reinterpret_cast<Acquire>(SlotOf(object, 18))(object, name, 0, OwnPid(), &handle_, &error_);
  EXPECT_EQ(TakeLog(), Failure("AcquireDevice", TzErrorCode::INVALID_DEVICE));

  using Packet =
      HRESULT(STDMETHODCALLTYPE*)(void*, SAFEARRAY*, std::int64_t, LONG, SAFEARRAY**, TzErrorCode*);
  reinterpret_cast<Packet>(SlotOf(object, 29))(object, nullptr, 0, 0, &result, &error_);
  EXPECT_EQ(TakeLog(), Failure("SendI2CPacket", TzErrorCode::NOT_ACQUIRED));

  using Revision = HRESULT(STDMETHODCALLTYPE*)(void*, BSTR, LONG*, TzErrorCode*);
  reinterpret_cast<Revision>(SlotOf(object, 31))(object, name, &revision, &error_);
  EXPECT_EQ(TakeLog(), Lines{"[CTzWirefox::GetHwRevID]"});

  // Behind the interface: the destructor, which has two slots with these compilers, and this one.
  using Vendor = HRESULT(STDMETHODCALLTYPE*)(void*, BSTR, LONG, LONG, LONG, SAFEARRAY*, CHAR,
                                             SAFEARRAY**, TzErrorCode*);
  reinterpret_cast<Vendor>(SlotOf(object, 34))(object, nullptr, 0, 0, 0, nullptr, 0, &result,
                                               &error_);
  EXPECT_EQ(TakeLog(), Failure("VendorRequest", TzErrorCode::INVALID_PARAM));
}

}  // namespace
