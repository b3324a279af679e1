// IPlaySetting: the player's settings store, over the "Player" section of
// the option document, with read access to the recorder's camera and
// general options so that playback shows the same names and enforces the
// same privileges. Loaded from the document on first use; every save
// rewrites the document at once.
//
// Camera numbers outside 0..15 give "" and 0 rather than touching memory
// outside the record.
#pragma once

#include "dravix/config/dvroption.h"

#include <memory>

class IPlaySetting {
 public:
  static IPlaySetting* Instance();
  virtual ~IPlaySetting();
  IPlaySetting(const IPlaySetting&) = delete;
  IPlaySetting& operator=(const IPlaySetting&) = delete;

  // Copies the player options out.
  void LoadPlayerOption(tagDSPREFERENCE& preference);
  // Copies them in and writes the "Player" part of the document. Returns 1,
  // or 0 when the document could not be written.
  int SavePlayerOption(tagDSPREFERENCE& preference);
  void LoadPlayerAudioOption(tagDSPLAYERAUDIO& audio);
  int SavePlayerAudioOption(tagDSPLAYERAUDIO& audio);

  int IsPlayCaption();
  int IsPlaybackLoop();
  tagDSPLAYCAPTION GetPlayOption();

  const char* GetCameraName(int camera);
  int GetCameraPrivilege(int camera);
  const char* GetSiteName();
  int IsDirectAccess();

  // Reads a raw main option record (108848 bytes) from a file into the
  // store's copy; 1 when the file could be opened, else 0. Neither the size
  // nor the version is checked: a short file fills what it holds.
  int ReadDVROptionFromFile(const char* path);

 private:
  IPlaySetting();
  tagDSZEPLODVROPTION& Option();

  std::unique_ptr<tagDSZEPLODVROPTION> option_;
};

// IBackupSetting: a small read-only view for the backup function, built
// from the document's backup view on first use.
class IBackupSetting {
 public:
  static IBackupSetting* Instance();
  virtual ~IBackupSetting();
  IBackupSetting(const IBackupSetting&) = delete;
  IBackupSetting& operator=(const IBackupSetting&) = delete;

  int IsDirectAccess() const;
  // The player options the backup works with (backup folder and period,
  // the last backup job).
  void GetPreference(tagDSPREFERENCE& preference) const;

 private:
  IBackupSetting();
  std::unique_ptr<tagDSZEPLODVROPTION> option_;
};
