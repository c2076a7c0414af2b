#include <gtest/gtest.h>
#include <windows.h>

#include <oleauto.h>

#include <string>

namespace {

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
