// The settings store's schedule-aware readers: the schedule manager's
// current task answers while a task of the camera's schedule holds now;
// the stored camera options answer otherwise.
#include "dravix/schedule/zschedulemanager.h"
#include "dravix/settings/setting.h"

namespace {

ZScheduleManager* Schedule() { return ZScheduleManager::Instance(); }

// 1 when the camera's schedule is enabled and one of today's tasks holds
// now; the task check also makes that task the current one.
int HasSetting(int n) { return Schedule()->IsScheduleSetting(n) != 0 ? 1 : 0; }

// The action of the task that holds now (0 when none does or its action
// flag is off). Asked only for a camera whose schedule is enabled.
int TaskAction(int n, tagDSACTIONOPTION& action) {
  if (!HasSetting(n)) return 0;
  return Schedule()->IsAction(n, action);
}

// A field of the action that applies to camera n: the current task's with
// the schedule enabled, else the stored one (0 while the Action switch is
// off).
int ActionField(int n, const tagDSCAMERAOPTION& stored, LONG tagDSACTIONOPTION::*field) {
  if (Schedule()->IsEnabled(n)) {
    tagDSACTIONOPTION task{};
    return TaskAction(n, task) == 1 ? task.*field : 0;
  }
  return stored.bAction == 0 ? 0 : stored.dsAction.*field;
}

bool ValidLine(int line) { return line >= 0 && line < kDSMaxDevice; }

}  // namespace

int ISetting::IsRecord(int n) {
  if (!Schedule()->IsEnabled(n) || !HasSetting(n)) return Cam(n).bRecord;
  if (!Schedule()->IsConnect(n)) return 0;
  int mode = 0;
  return Schedule()->IsRecord(n, mode) == 1 ? 1 : 0;
}

int ISetting::IsVisual(int n) { return HasSetting(n) ? Schedule()->IsVisual(n) : Cam(n).bVisual; }

int ISetting::IsManual(int n) { return HasSetting(n) ? Schedule()->IsManual(n) : Cam(n).bManual; }

int ISetting::IsPTZLoop(int n) {
  if (!Schedule()->IsEnabled(n)) return Cam(n).dsPTZ.bLoop;
  return HasSetting(n) ? Schedule()->IsPTZLoop(n) : 0;
}

int ISetting::AllowCameraConnection(int n) {
  if (HasSetting(n) && Schedule()->IsConnect(n)) return 1;
  return Cam(n).bConnection;
}

int ISetting::IsConnect(int n) { return HasSetting(n) ? Schedule()->IsConnect(n) : Cam(n).bConnection; }

int ISetting::IsSensor(int n, int input) {
  if (HasSetting(n) && Schedule()->IsSensor(n)) return 1;
  const tagDSCAMERAOPTION& c = Cam(n);
  if (c.bSensor != 1 || !ValidLine(input) || c.dsSensorDevice.nDevice[input] == 0) return 0;
  const LONG card = m_option.nSelectedICard;
  if (card < 0 || card >= kDSMaxIOCard) return 0;
  return m_option.dsDevice[card].nInput[input] != 0 ? 1 : 0;
}

int ISetting::IsExternal(int n, int output) {
  if (HasSetting(n) && Schedule()->IsExternal(n)) return 1;
  const tagDSCAMERAOPTION& c = Cam(n);
  if (c.bToEXTDevice != 1 || !ValidLine(output) || c.dsEXTDevice.nDevice[output] == 0) return 0;
  // QUIRK(output-card-from-one): output card 0 never drives a relay from the
  // stored options, where the input test takes card 0.
  const LONG card = m_option.nSelectedOCard;
  if (card < 1 || card >= kDSMaxIOCard) return 0;
  return m_option.dsDevice[card].nOutput[output] != 0 ? 1 : 0;
}

int ISetting::GetEventFrom(int n) {
  if (HasSetting(n)) return Schedule()->IsConnect(n) ? Schedule()->GetEventFrom(n) : 0;
  const tagDSCAMERAOPTION& c = Cam(n);
  return (c.bVisual ? 1 : 0) | (c.bSensor ? 2 : 0) | (c.bManual ? 4 : 0);
}

int ISetting::IsAction(int n, tagDSACTIONOPTION& action) {
  if (Schedule()->IsEnabled(n)) return TaskAction(n, action);
  const tagDSCAMERAOPTION& c = Cam(n);
  if (c.bAction == 1) action = c.dsAction;
  return c.bAction;
}

int ISetting::IsLocalFlashText(int n) { return ActionField(n, Cam(n), &tagDSACTIONOPTION::bFlash); }
int ISetting::IsChangeSigleView(int n) { return ActionField(n, Cam(n), &tagDSACTIONOPTION::bSingleView); }
// QUIRK(stop-single-view): there is no field of its own; it answers as IsChangeSigleView.
int ISetting::IsStopSigleView(int n) { return IsChangeSigleView(n); }
int ISetting::GetChangeSigleViewTime(int n) { return ActionField(n, Cam(n), &tagDSACTIONOPTION::nDelaySec); }

int ISetting::PostTimeSchedling(int n) { return Schedule()->PostTimeSchedling(n); }

int ISetting::PostVisualDerection() { return Schedule()->PostVisualDerection(); }
