#include "dravix/base/zunknown.h"

HRESULT ZUnknown::QueryInterface(const IID& iid, void** ppv) {
  if (iid != IID_IUnknown) return E_NOINTERFACE;
  *ppv = this;
  return S_OK;
}

ULONG ZUnknown::AddRef() { return static_cast<ULONG>(++refCount); }

ULONG ZUnknown::Release() {
  if (--refCount >= 1) return static_cast<ULONG>(refCount);
  delete this;
  return 0;
}
