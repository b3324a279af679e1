// ZXMLMGR: the XML option document "DVROPTION.XML" in the program folder,
// the store of record for every setting of the recorder and the player.
//
// The document turns the whole-document record tagDSZEPLODVROPTION into an
// element tree and back, section by section (General, Camera, Device, View,
// Map, User, Audio, Player, POS). A missing or unparsable file is replaced by
// the default document; a missing element gives its default. Saving replaces
// the file atomically: a crash leaves the old or the new document. Only
// characters XML 1.0 allows are written (control characters and bytes that
// are not valid UTF-8 are dropped), and texts from the document are cut at a
// character boundary.
//
// Not thread-safe: one thread at a time. No exception leaves it.
#pragma once

#include "dravix/config/dvroption.h"

#include <cstddef>
#include <memory>
#include <string>

namespace dravix::config {
// The URI bound to the prefix "f" of the root element "f:ZeploXML".
inline constexpr const char* kOptionNamespaceUri = "http://www.zeplo.com/ZeploXML";
inline constexpr const char* kOptionFileName = "DVROPTION.XML";
}  // namespace dravix::config

class ZXMLMGR {
 public:
  static ZXMLMGR* Instance();

  ZXMLMGR();
  virtual ~ZXMLMGR();
  ZXMLMGR(const ZXMLMGR&) = delete;
  ZXMLMGR& operator=(const ZXMLMGR&) = delete;

  // The file of later loads and saves; empty = program folder +
  // "DVROPTION.XML" (taken at each load or save).
  void SetFilename(const char* name);
  std::string GetFilename() const;

  // Loads the file, or builds and saves the default document when it is
  // missing or cannot be parsed (an existing file that cannot be read or
  // parsed is first kept beside it, see KeepUnreadableDocument, and the
  // general log says so), then fills every section part of `option`
  // (the format version and the device extension table are left alone).
  // Returns 1.
  int LoadOption(tagDSZEPLODVROPTION& option);
  // Unless flag is 1, first hands each section its part of `option`; then
  // writes every section into the tree and saves the file. Returns 1, or 0
  // when the file could not be written.
  int SaveOption(tagDSZEPLODVROPTION& option, int flag);

  // LoadOption and SaveOption without the file: the document is read from
  // `size` bytes at `data` (unparsable bytes give the default document,
  // kept in memory only) and saved into `out`, byte for byte what the file
  // would hold.
  int LoadOptionFromBuffer(const void* data, size_t size, tagDSZEPLODVROPTION& option);
  int SaveOptionToBuffer(tagDSZEPLODVROPTION& option, int flag, std::string& out);

  // The player's view: loads the document and fills the General, Camera,
  // User and Player parts (preference, player audio, talk).
  int LoadPlayerOption(tagDSZEPLODVROPTION& option);
  // Writes the Player part of `option` into the document as it is on disk
  // now (so the recorder's sections are not overwritten with an older copy)
  // and saves it. Returns 1, or 0 when the file could not be written.
  int SavePlayerOption(tagDSZEPLODVROPTION& option);
  // The backup view: loads the document and fills the User and Player parts.
  int LoadBackupOption(tagDSZEPLODVROPTION& option);

  // What the last load found: 1 when the file was parsed, 0 when the
  // default document replaced it.
  int LastLoadParsed() const;
  // Why the last load did not parse ("" when it did): the parser's message
  // with the byte offset, or why the file could not be read.
  const std::string& LastLoadError() const;

 private:
  struct Document;
  std::unique_ptr<Document> doc_;
  std::string filename_;
};

namespace dravix::config {
// Moves an option document that cannot be read aside before it is replaced:
// to path + ".bad", the previous kept copies going to ".bad.1" and ".bad.2"
// (the last three are kept). False when the move failed.
bool KeepUnreadableDocument(const std::string& path);
}  // namespace dravix::config
