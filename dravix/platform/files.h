// File-system queries and operations for the file helpers: existence,
// sizes, folder listing with Windows wildcards, deletion, disk space and
// drive types. The operations that fail keep the OS reason in
// LastFileError() (file_io.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dravix::platform {

// Windows drive-type codes.
enum DriveType : int {
  kDriveUnknown = 0,
  kDriveNoRootDir = 1,
  kDriveRemovable = 2,
  kDriveFixed = 3,
  kDriveRemote = 4,
  kDriveCdrom = 5,
  kDriveRamdisk = 6,
};

bool PathExists(const std::string& path);
// Size in bytes, or -1 when the path cannot be read.
int64_t PathSize(const std::string& path);
// true for a real folder (a link to a folder is not one).
bool IsRealDirectory(const std::string& path);
// true when nobody may write the path or its file system is read-only.
bool IsReadOnly(const std::string& path);

// The names in `pattern`'s folder (the text up to its last separator, "."
// when it has none) that match its last step as a Windows wildcard, "." and
// ".." included when they match. false when the folder cannot be listed.
bool FindFiles(const std::string& pattern, std::vector<std::string>* names);
// Windows wildcard match, without regard to case: '*' any run, '?' one
// character, and "*.*" (or any trailing ".*") also matches names without a
// dot.
bool MatchWildcard(const std::string& mask, const std::string& name);

bool DeleteFileAt(const std::string& path);       // unlink; fails for folders
bool RemoveEmptyFolder(const std::string& path);  // rmdir
// Moves the file `from` to `to`, replacing `to`, also between file systems:
// where a rename cannot cross, the content is copied into a staged file
// beside `to` that replaces it only when whole, and then `from` is removed
// (emptied when it cannot be removed). On failure `to` is as it was and
// `error`, when given, says why.
bool MoveFileReplacing(const std::string& from, const std::string& to, std::string* error = nullptr);
void MakeWritable(const std::string& path);  // the "normal" attributes

struct DiskSpace {
  uint64_t freeToCaller;
  uint64_t total;
  uint64_t free;
};
// The space of the file system holding `path` (or, when the path does not
// exist, its nearest existing ancestor folder).
bool QueryDiskSpace(const std::string& path, DiskSpace* out);
// The drive type of the file system holding `path`; kDriveNoRootDir when
// the path does not exist.
DriveType QueryDriveType(const std::string& path);

// Debugger text: written to standard error when DRAVIX_DEBUG is set.
void OutputDebugText(const char* text);

}  // namespace dravix::platform
