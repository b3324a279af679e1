// The recorder's old binary option files, read once and migrated into the
// option document:
//
//   "DVROption.zmi"  a raw little-endian image of tagDSDVROPTION in one of
//                    four layouts, told apart by the first word:
//     1500  the whole 108848-byte record;
//     1100  94668 bytes: the version word, the General fields up to the
//           modem ports without the restart time and the dynamic-IP
//           block, the 16 cameras whole (3288 bytes each), then the view
//           table, card selections, I/O cards, device table, map and user
//           block; no POS sources;
//     1200  95200 bytes: as 1100 plus the 788-byte dynamic-IP block after
//           the modem ports, with each camera in its older 3272-byte form
//           (no pre-recording fields, five image-filter values);
//     other no version word: the 1100 layout without its first word
//           (94664 bytes), beginning with the site name.
//   "AudioOption.zmi"        tagDSAUDIOEXPRESS (13072 bytes), accepted when
//                            its first word equals the current record's;
//   "PlayerAudioOption.zmi"  tagDSPLAYERAUDIO (4492 bytes);
//   "TALKOption.zmi"         tagDSTALKOPTION (8984 bytes);
//   "PlayerOption.zmi"       tagDSPREFERENCE (1244 bytes);
//   "PlayAudioOption.zmi"    the older name of the player-audio file, same
//                            record; read only when "PlayerAudioOption.zmi"
//                            gave nothing.
//
// A file shorter than its layout, or an audio file with another version
// word, is rejected whole: the record keeps its defaults and the file is
// left where it is (so nothing is lost that a person might still recover).
// Every text field read is cut to its array, so garbage never runs past one.
#pragma once

#include "dravix/config/dvroption.h"

#include <cstddef>
#include <string>
#include <vector>

class ZXMLMGR;

namespace dravix::config {

inline constexpr const char* kLegacyDVROptionFile = "DVROption.zmi";

enum class LegacyLayout { kAbsent, k1500, k1100, k1200, kUnversioned, kRejected };

const char* LegacyLayoutName(LegacyLayout layout);
// Bytes a layout occupies in the file (0 for kAbsent/kRejected).
size_t LegacyLayoutSize(LegacyLayout layout);

// What one legacy file gave.
struct LegacyFileReport {
  std::string file;                             // name in the program folder
  LegacyLayout layout = LegacyLayout::kAbsent;  // main file only
  bool present = false;
  bool accepted = false;  // read into the record
  bool deleted = false;
  size_t bytes = 0;                       // file size
  std::string note;                       // why rejected, or what the layout lacked
  std::vector<std::string> keptDefaults;  // settings the file had no field for
};

struct MigrationReport {
  std::vector<LegacyFileReport> files;
  bool savedBeforeLoad = false;  // the main file went into the document first
  bool savedAfter = false;       // the record files went in after the load
  bool AnyAccepted() const;
};

// Reads `size` bytes of an old "DVROption.zmi" over `rec` (which holds the
// defaults). Never reads past `size`; returns the layout found, kRejected
// (with `rec` untouched) when the bytes are fewer than the layout needs.
LegacyLayout ReadLegacyDVROption(const unsigned char* data, size_t size, tagDSDVROPTION& rec,
                                 LegacyFileReport* report = nullptr);

// Cuts every text field of `option` to its array (a NUL in the last byte).
void TerminateOptionTexts(tagDSZEPLODVROPTION& option);

// The start-up migration over the program folder: reads "DVROption.zmi"
// into option.dsDVROption and, when accepted, saves it into the document
// (keeping the document's other sections when one exists); loads the
// document into `option`; reads the record files into their records and
// saves again when any was accepted; then deletes every accepted file.
// `option` must hold the defaults on entry.
MigrationReport MigrateLegacyOptions(tagDSZEPLODVROPTION& option, ZXMLMGR& doc);

}  // namespace dravix::config
