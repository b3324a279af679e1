// ZUnknown: a minimal reference-counted object with the IUnknown shape.
//
// The count is not atomic: share an object within one thread or under an
// outer lock. Release() deletes the object when the count drops below 1,
// so an object that was never AddRef'ed is deleted by its first Release().
#pragma once

#include "dravix/platform/wintypes.h"

class ZUnknown {
 public:
  ZUnknown() = default;
  // QUIRK(copy-keeps-count): a copy starts with the count of the object it came from.
  ZUnknown(const ZUnknown& other) : refCount(other.refCount) {}
  ZUnknown& operator=(const ZUnknown& other) {
    refCount = other.refCount;
    return *this;
  }

  // S_OK and `this` for IID_IUnknown (count unchanged); E_NOINTERFACE and
  // `*ppv` untouched for anything else.
  virtual HRESULT QueryInterface(const IID& iid, void** ppv);
  virtual ULONG AddRef();
  virtual ULONG Release();
  virtual ~ZUnknown() = default;

  LONG refCount = 0;
};
