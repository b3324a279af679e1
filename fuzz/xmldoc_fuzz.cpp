// A hostile "DVROPTION.XML": loading it must not crash, hang or allocate
// without bound, and what was loaded must save as well-formed XML 1.0 in
// valid UTF-8 (checked by expat, a parser that shares nothing with ours)
// and load again. The document is loaded from and saved to memory, so a
// run tries thousands of inputs a second rather than dozens.
#include "dravix/config/default_names.h"
#include "dravix/config/xmldoc.h"

#include <expat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

bool WellFormed(const std::string& bytes) {
  XML_Parser p = XML_ParserCreate(nullptr);
  if (p == nullptr) std::abort();
  const bool ok = XML_Parse(p, bytes.data(), static_cast<int>(bytes.size()), 1) == XML_STATUS_OK;
  if (!ok) {
    std::fprintf(stderr, "saved document is not well-formed: %s at line %lu\n", XML_ErrorString(XML_GetErrorCode(p)),
                 static_cast<unsigned long>(XML_GetCurrentLineNumber(p)));
  }
  XML_ParserFree(p);
  return ok;
}

template <size_t N>
bool Terminated(const char (&text)[N]) {
  return text[N - 1] == '\0';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool once = [] {
    dravix::config::SetOptionStringSource([](UINT id) { return "S" + std::to_string(id); });
    return true;
  }();
  (void)once;

  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR mgr;
  mgr.LoadOptionFromBuffer(data, size, *o);
  // Every text the loader produced is terminated inside its array.
  for (const auto& cam : o->dsDVROption.dsCamera)
    if (!Terminated(cam.szName) || !Terminated(cam.dsAction.szContext)) std::abort();
  if (!Terminated(o->dsDVROption.dsGeneral.szSiteName)) std::abort();

  std::string saved;
  if (mgr.SaveOptionToBuffer(*o, 0, saved) != 1) std::abort();
  if (!WellFormed(saved)) std::abort();

  // What was saved loads back as a document, not as the default.
  auto again = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR other;
  other.LoadOptionFromBuffer(saved.data(), saved.size(), *again);
  if (other.LastLoadParsed() != 1) std::abort();
  return 0;
}
