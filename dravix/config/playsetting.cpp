#include "dravix/config/playsetting.h"

#include "dravix/base/single_instance.h"
#include "dravix/config/xmldoc.h"
#include "dravix/platform/file_io.h"

#include <cstring>
#include <fstream>

namespace {

bool ValidCamera(int camera) { return camera >= 0 && camera < kDSMaxCamera; }

}  // namespace

IPlaySetting* IPlaySetting::Instance() {
  return dravix::base::SingleInstance<IPlaySetting>([] { return new IPlaySetting(); });
}

IPlaySetting::IPlaySetting() = default;
IPlaySetting::~IPlaySetting() = default;

tagDSZEPLODVROPTION& IPlaySetting::Option() {
  if (!option_) {
    option_ = std::make_unique<tagDSZEPLODVROPTION>();
    option_->dsDVROption.nVersion = kDSOptionVersion;
    ZXMLMGR::Instance()->LoadPlayerOption(*option_);
  }
  return *option_;
}

void IPlaySetting::LoadPlayerOption(tagDSPREFERENCE& preference) { preference = Option().dsPreference; }

int IPlaySetting::SavePlayerOption(tagDSPREFERENCE& preference) {
  tagDSZEPLODVROPTION& o = Option();
  o.dsPreference = preference;
  std::memset(o.dsPreference.dsPlayCaption.byReserved, 0, sizeof o.dsPreference.dsPlayCaption.byReserved);
  return ZXMLMGR::Instance()->SavePlayerOption(o);
}

void IPlaySetting::LoadPlayerAudioOption(tagDSPLAYERAUDIO& audio) { audio = Option().dsPlayerAudio; }

int IPlaySetting::SavePlayerAudioOption(tagDSPLAYERAUDIO& audio) {
  tagDSZEPLODVROPTION& o = Option();
  o.dsPlayerAudio = audio;
  return ZXMLMGR::Instance()->SavePlayerOption(o);
}

int IPlaySetting::IsPlayCaption() { return Option().dsPreference.bCaption; }
int IPlaySetting::IsPlaybackLoop() { return Option().dsPreference.bLoopPlay; }
tagDSPLAYCAPTION IPlaySetting::GetPlayOption() { return Option().dsPreference.dsPlayCaption; }

const char* IPlaySetting::GetCameraName(int camera) {
  return ValidCamera(camera) ? Option().dsDVROption.dsCamera[camera].szName : "";
}

int IPlaySetting::GetCameraPrivilege(int camera) {
  return ValidCamera(camera) ? Option().dsDVROption.dsCamera[camera].nPrivilege : 0;
}

const char* IPlaySetting::GetSiteName() { return Option().dsDVROption.dsGeneral.szSiteName; }
int IPlaySetting::IsDirectAccess() { return Option().dsDVROption.dsUser.bDirectAccess; }

int IPlaySetting::ReadDVROptionFromFile(const char* path) {
  if (path == nullptr || !dravix::platform::CheckRegularFile(path)) return 0;  // a FIFO must not block
  std::ifstream in(path, std::ios::binary);
  if (!in) return 0;
  tagDSDVROPTION& record = Option().dsDVROption;
  in.read(reinterpret_cast<char*>(&record), sizeof record);
  return 1;
}

IBackupSetting* IBackupSetting::Instance() {
  return dravix::base::SingleInstance<IBackupSetting>([] { return new IBackupSetting(); });
}

IBackupSetting::IBackupSetting() : option_(std::make_unique<tagDSZEPLODVROPTION>()) {
  ZXMLMGR::Instance()->LoadBackupOption(*option_);
}

IBackupSetting::~IBackupSetting() = default;

int IBackupSetting::IsDirectAccess() const { return option_->dsDVROption.dsUser.bDirectAccess; }

void IBackupSetting::GetPreference(tagDSPREFERENCE& preference) const { preference = option_->dsPreference; }
