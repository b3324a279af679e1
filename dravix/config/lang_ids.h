// Ids of the interface texts the library itself looks up with
// IString::LoadStringA. The texts are in lang/strings.tsv, built into the
// language databases; every id here exists there in every table.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::lang {

// Default site name of a fresh configuration ("Surveillance Site").
inline constexpr UINT kSiteNameDefault = 4501;
// The word of default channel names, formatted "%s %02d" with the channel
// number ("Channel 01").
inline constexpr UINT kChannelWord = 4502;
// Default camera names: kCameraNameBase + camera index 0..15 gives
// "Camera 1" .. "Camera 16".
inline constexpr UINT kCameraNameBase = 4503;
inline constexpr int kCameraNameCount = 16;

// Account texts. The default account's user name; Delete refuses it.
inline constexpr UINT kDefaultUserName = 7103;
// Captions of the account list: user name, password, privilege.
inline constexpr UINT kUserNameCaption = 7104;
inline constexpr UINT kPasswordCaption = 7105;
inline constexpr UINT kPrivilegeCaption = 7106;
// Display names of privilege levels 0..3: kPrivilegeNameBase + level.
inline constexpr UINT kPrivilegeNameBase = 7107;
inline constexpr int kPrivilegeLevelCount = 4;
// Description of the default account.
inline constexpr UINT kDefaultUserDescription = 7111;

}  // namespace dravix::lang
