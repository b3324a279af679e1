// The scalar vocabulary of the library's interface, with the widths the
// recorder's records and files were laid out with (32-bit LONG, 16-bit
// SYSTEMTIME fields, ...). Nothing here includes an OS header.
#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = int32_t;
using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using UINT = uint32_t;
using INT = int32_t;
using LONG = int32_t;
using ULONG = uint32_t;
using SHORT = int16_t;
using USHORT = uint16_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using __int64 = int64_t;
using HRESULT = int32_t;
using COLORREF = uint32_t;
using UINT_PTR = uintptr_t;
using LONG_PTR = intptr_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using HANDLE = void*;
using WCHAR = char16_t;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

constexpr DWORD INFINITE = 0xFFFFFFFFu;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
constexpr int MAX_PATH = 260;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
static_assert(sizeof(SYSTEMTIME) == 16);

// 100-nanosecond intervals since 1601-01-01, split in two 32-bit halves.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
static_assert(sizeof(FILETIME) == 8);

inline int64_t FileTimeToInt64(const FILETIME& ft) {
  return static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}
inline FILETIME Int64ToFileTime(int64_t v) {
  const auto u = static_cast<uint64_t>(v);
  return FILETIME{static_cast<DWORD>(u & 0xFFFFFFFFu), static_cast<DWORD>(u >> 32)};
}

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);
using IID = GUID;
using CLSID = GUID;

inline bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
inline bool IsEqualGUID(const GUID& a, const GUID& b) { return a == b; }

// 00000000-0000-0000-C000-000000000046
inline constexpr IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

constexpr int LF_FACESIZE = 32;
struct LOGFONTA {
  LONG lfHeight;
  LONG lfWidth;
  LONG lfEscapement;
  LONG lfOrientation;
  LONG lfWeight;
  BYTE lfItalic;
  BYTE lfUnderline;
  BYTE lfStrikeOut;
  BYTE lfCharSet;
  BYTE lfOutPrecision;
  BYTE lfClipPrecision;
  BYTE lfQuality;
  BYTE lfPitchAndFamily;
  char lfFaceName[LF_FACESIZE];
};
static_assert(sizeof(LOGFONTA) == 60);

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};
static_assert(sizeof(RECT) == 16);

struct POINT {
  LONG x;
  LONG y;
};

constexpr COLORREF RGB(BYTE r, BYTE g, BYTE b) {
  return static_cast<COLORREF>(r) | (static_cast<COLORREF>(g) << 8) | (static_cast<COLORREF>(b) << 16);
}
