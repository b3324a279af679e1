// One walk over every setting the option document carries, shared by the
// document's reader and writer, the builder of the default document and the
// `dravix config` command, so that element names, defaults and order are
// written down once.
//
// A walk calls Enter()/Leave() around each element that holds others and one
// typed call per setting, in document order. The `def` argument is the
// default the loader uses when the element is missing; it is also the value
// the default document holds, except where a call says otherwise.
#pragma once

#include "dravix/config/dvroption.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace dravix::config {

class OptionVisitor {
 public:
  virtual ~OptionVisitor() = default;

  virtual void Enter(std::string_view element) = 0;
  virtual void Leave() = 0;

  virtual void Int(std::string_view key, LONG& value, LONG def) = 0;
  // A switch: only a value of exactly 1 is on.
  virtual void Bool(std::string_view key, BOOL& value, BOOL def) = 0;
  virtual void Float(std::string_view key, float& value, float def) = 0;
  // A fixed text array of `cap` bytes.
  virtual void Text(std::string_view key, char* field, size_t cap, std::string_view def) = 0;

  // A text whose loader default differs from the default document's value
  // (the fax port and selected number: QUIRK(crossed-fax-defaults)).
  virtual void CrossedText(std::string_view key, char* field, size_t cap, std::string_view loaderDef,
                           std::string_view documentDef) {
    (void)documentDef;
    Text(key, field, cap, loaderDef);
  }
  // A pager setting, kept in an element named "DsPager" followed directly
  // by the key; the default document instead holds a "DsPager" element with
  // the key as a child. Both forms are kept for existing files.
  virtual void PagerText(std::string_view key, char* field, size_t cap, std::string_view def) {
    Text(std::string("DsPager").append(key), field, cap, def);
  }
  // QUIRK(alarm-switch-and-text): one element read twice, first as a switch and then as a text; a writer
  // writes the text first and the switch last, so the switch survives.
  virtual void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char* text, size_t cap) {
    Bool(key, value, def);
    Text(key, text, cap, "");
  }

  // Helpers for narrower fields, passed through a 32-bit value.
  template <typename T>
  void Narrow(std::string_view key, T& value, LONG def) {
    LONG v = static_cast<LONG>(value);
    Int(key, v, def);
    value = static_cast<T>(v);
  }
  template <size_t N>
  void Text(std::string_view key, char (&field)[N], std::string_view def) {
    Text(key, field, N, def);
  }
};

// The document's sections, as bits for choosing which ones a walk visits.
enum OptionSection : unsigned {
  kSectionGeneral = 1u << 0,
  kSectionCamera = 1u << 1,
  kSectionDevice = 1u << 2,
  kSectionView = 1u << 3,
  kSectionMap = 1u << 4,
  kSectionUser = 1u << 5,
  kSectionAudio = 1u << 6,
  kSectionPlayer = 1u << 7,  // preference, player audio and talk
  kSectionPOS = 1u << 8,
  kAllSections = (1u << 9) - 1,
};

// Walks the chosen sections of `option` under the root element "ZeploXML",
// in document order.
void VisitOptionSections(OptionVisitor& v, tagDSZEPLODVROPTION& option, unsigned sections);

// Copies the parts of `from` that belong to the chosen sections into `to`;
// the format version and the device extension table belong to none.
void CopyOptionSections(tagDSZEPLODVROPTION& to, const tagDSZEPLODVROPTION& from, unsigned sections);

// Every setting of the chosen sections at the value a load of the default
// document gives (fields the document does not carry are zero, except the
// audio record's version word).
void FillDefaultOptions(tagDSZEPLODVROPTION& option, unsigned sections = kAllSections);

}  // namespace dravix::config
