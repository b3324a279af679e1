// File and disk helpers. Paths accept both '\' and '/' as separators: "the
// last backslash" below means the last of either, so Windows-style paths in
// old files and native paths both work. The functions keep no state and take
// no locks.
#pragma once

#include "dravix/platform/wintypes.h"

#include <string>

struct tagDiskSpace {
  uint64_t freeBytesAvailable;  // bytes free to the caller
  uint64_t totalBytes;          // total bytes of the disk
  uint64_t totalFreeBytes;      // total free bytes of the disk
};

// 1 if the path exists (a folder counts), else 0.
int FileExists(const char* path);
// The file's size, or -1 when it cannot be read.
__int64 FileSize(const char* path);

// The program folder with a trailing separator: the folder set by
// SetModulePath(), else $DRAVIX_HOME, else the folder of /proc/self/exe.
std::string GetModulePath();
// Sets the program folder (a separator is appended when missing). An empty
// or null path returns to the default.
void SetModulePath(const char* folder);

// The text before the last separator, when that separator is at a position
// greater than 0; otherwise the path unchanged.
std::string GetFilePATH(const char* path);
// Substring from one past the last separator, (last separator - last dot
// - 1) characters long; empty when negative. Deliberate arithmetic: an
// ordinary folder\name.ext gives "". Use the two-argument form for titles.
std::string GetFileTitle(const char* path);
// Copies what follows the last separator (extension kept) into `out`;
// writes nothing for an empty path or one with no separator after its first
// character. `out` must hold the remainder.
void GetFileTitle(const char* path, char* out);

// 1 while a live process (this one included) holds the named mutex open.
int IsMutexExisting(const char* name);

// Fills `out` for the disk holding `path`; 0 for a CD-ROM or a failed query.
int GetDiskSpace(const char* path, tagDiskSpace& out);
// Total free bytes of the path's disk (-1 when the query fails).
__int64 GetDiskFreeSpaceA(const char* path);
// 1 if the bytes free to the caller are at least `need`.
int CheckDiskFreeSize(uint64_t need, char* path);
// 1 for a usable fixed, removable or network disk; writes the debugger text
// "Hard disk or network disk not exist !" on failure.
int CheckDisk(char* path);

// Deletes the files matching folder + mask (Windows wildcards; "*.*" matches
// every name). Subfolders are not entered. removeFolder == 1 also removes
// the folder. 1 when the enumeration ended normally, else 0.
int DelAllFile(std::string folder, std::string mask, int removeFolder);
// Deletes the folder (which must end with a separator) and everything in
// it. Always 1.
int DelDirectory(std::string folder);
