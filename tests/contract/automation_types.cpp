#include <gtest/gtest.h>
#include <windows.h>

#include <oleauto.h>

#include <string>

namespace {

TEST(AutomationStrings, NullIsEmptyAndMayBeFreed) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST(AutomationStrings, CountTheirCharactersAndEndWithAZero) {
  const std::wstring cases[] = {L"", L"WFX0001", std::wstring(L"a\0b", 3),
                                std::wstring(5000, L'x')};
  for (const std::wstring& text : cases) {
    const BSTR string = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(SysStringLen(string), text.size());
    EXPECT_EQ(std::wstring(string, text.size()), text);
    EXPECT_EQ(string[text.size()], L'\0');
    SysFreeString(string);
  }
  const BSTR cut = SysAllocString(std::wstring(L"a\0b", 3).c_str());
  EXPECT_EQ(SysStringLen(cut), 1u);
  SysFreeString(cut);
}

TEST(AutomationArrays, BeginAsZerosWithTheirBoundsAndElementSize) {
  struct Case {
    VARTYPE type;
    LONG lower;
    ULONG count;
    UINT element_size;
  };
  const Case cases[] = {{VT_UI1, 0, 100, 1}, {VT_UI1, 0, 0, 1}, {VT_BSTR, 0, 3, 8},
                        {VT_I4, 5, 2, 4},    {VT_I2, -3, 3, 2}, {VT_BSTR, 0, 0, 8}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    SAFEARRAYBOUND bound = {c.count, c.lower};
    SAFEARRAY* array = SafeArrayCreate(c.type, 1, &bound);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(SafeArrayGetDim(array), 1u);
    EXPECT_EQ(SafeArrayGetElemsize(array), c.element_size);
    LONG lower = 99, upper = 99;
    EXPECT_EQ(SafeArrayGetLBound(array, 1, &lower), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
    EXPECT_EQ(lower, c.lower);
    EXPECT_EQ(upper, c.lower + static_cast<LONG>(c.count) - 1);
    VARTYPE type = 0;
    EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
    EXPECT_EQ(type, c.type);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    const std::size_t bytes = c.count * c.element_size;
    for (std::size_t i = 0; i < bytes; ++i) EXPECT_EQ(static_cast<const char*>(data)[i], 0);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  }
}

TEST(AutomationArrays, AccessIsCountedAndKeepsThemFromBeingDestroyed) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  void *first = nullptr, *second = nullptr;
  ASSERT_EQ(SafeArrayAccessData(array, &first), S_OK);
  ASSERT_EQ(SafeArrayAccessData(array, &second), S_OK);
  EXPECT_EQ(first, second);
  EXPECT_EQ(array->cLocks, 2u);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

// How a test brings about storage that cannot be accessed.
TEST(AutomationArrays, AccessFailsWhenItsCountIsFullAndBoundsEndWithTheDimension) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  LONG bound;
  EXPECT_EQ(SafeArrayGetLBound(array, 2, &bound), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(array, 0, &bound), DISP_E_BADINDEX);
  array->cLocks = 0xFFFF;
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), E_UNEXPECTED);
  array->cLocks = 0;
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(AutomationArrays, NullIsRefusedButMayBeDestroyed) {
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnaccessData(nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
  EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0u);
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

TEST(AutomationArrays, OfStringsFreeTheirElements) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, 2);
  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
  static_cast<BSTR*>(data)[1] = SysAllocString(L"freed with the array");
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  // The leak checker of the sanitizer builds sees what is not.
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

VARIANT Number(VARTYPE type, LONGLONG number) {
  VARIANT value;
  VariantInit(&value);
  V_UNION(&value, llVal) = number;
  V_VT(&value) = type;
  return value;
}

TEST(AutomationValues, ConvertBetweenIntegersThatFit) {
  struct Case {
    VARTYPE from;
    LONGLONG number;
    VARTYPE to;
    HRESULT status;
    LONGLONG result;
  };
  const Case cases[] = {
      {VT_I2, -5, VT_I4, S_OK, -5},
      {VT_UI1, 200, VT_I4, S_OK, 200},
      {VT_I4, 70000, VT_I2, DISP_E_OVERFLOW, 0},
      {VT_I4, -129, VT_I1, DISP_E_OVERFLOW, 0},
      {VT_I4, -128, VT_I1, S_OK, -128},
      {VT_I8, 1LL << 40, VT_I4, DISP_E_OVERFLOW, 0},
      {VT_I4, -1, VT_I8, S_OK, -1},
      {VT_UI4, 0xFFFFFFFF, VT_I8, S_OK, 0xFFFFFFFF},
      {VT_BOOL, -1, VT_I4, S_OK, -1},
      {VT_I4, 2, VT_BOOL, S_OK, -1},
      {VT_EMPTY, 0, VT_I4, S_OK, 0},
      {VT_NULL, 0, VT_I4, DISP_E_TYPEMISMATCH, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.from) + " to " + std::to_string(c.to));
    VARIANT source = Number(c.from, c.number);
    VARIANT converted;
    VariantInit(&converted);
    ASSERT_EQ(VariantChangeType(&converted, &source, 0, c.to), c.status);
    if (FAILED(c.status)) continue;
    EXPECT_EQ(V_VT(&converted), c.to);
    VARIANT wide;
    VariantInit(&wide);
    ASSERT_EQ(VariantChangeType(&wide, &converted, 0, VT_I8), S_OK);
    EXPECT_EQ(V_I8(&wide), c.result);
  }
}

TEST(AutomationValues, ConvertBetweenNumbersAndTheirDigits) {
  VARIANT text;
  VariantInit(&text);
  V_BSTR(&text) = SysAllocString(L" -1200 ");
  V_VT(&text) = VT_BSTR;
  VARIANT number;
  VariantInit(&number);
  ASSERT_EQ(VariantChangeType(&number, &text, 0, VT_I4), S_OK);
  EXPECT_EQ(V_I4(&number), -1200);
  ASSERT_EQ(VariantChangeType(&text, &number, 0, VT_BSTR), S_OK);
  EXPECT_EQ(std::wstring(V_BSTR(&text)), L"-1200");
  VariantClear(&text);

  V_BSTR(&text) = SysAllocString(L"name");
  V_VT(&text) = VT_BSTR;
  EXPECT_EQ(VariantChangeType(&number, &text, 0, VT_I4), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(V_I4(&number), -1200) << "a failed conversion leaves its destination";
  VariantClear(&text);
}

TEST(AutomationValues, AreFollowedThroughReferences) {
  LONG number = 42;
  VARIANT reference = Number(VT_EMPTY, 0);
  V_UNION(&reference, plVal) = &number;
  V_VT(&reference) = VT_BYREF | VT_I4;
  VARIANT converted;
  VariantInit(&converted);
  ASSERT_EQ(VariantChangeType(&converted, &reference, 0, VT_I2), S_OK);
  EXPECT_EQ(V_I2(&converted), 42);
}

TEST(AutomationValues, FreeWhatTheyOwnAndNotWhatTheyReferTo) {
  VARIANT value;
  VariantInit(&value);
  BSTR kept = SysAllocString(L"kept");
  V_UNION(&value, pbstrVal) = &kept;
  V_VT(&value) = VT_BYREF | VT_BSTR;
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(V_VT(&value), VT_EMPTY);
  EXPECT_EQ(std::wstring(kept), L"kept");
  V_BSTR(&value) = kept;
  V_VT(&value) = VT_BSTR;
  EXPECT_EQ(VariantClear(&value), S_OK);

  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
  void* data;
  ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
  V_ARRAY(&value) = array;
  V_VT(&value) = VT_ARRAY | VT_UI1;
  EXPECT_EQ(VariantClear(&value), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(VariantClear(&value), S_OK);
}

}  // namespace
