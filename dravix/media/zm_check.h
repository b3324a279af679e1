// The check of a recording, as a plan and as its application.
//
// PlanZMCheck() walks a recording and its index exactly as ZCheckZMFile
// does and says what the repair would change, without writing anything (it
// opens both files shared, for reading). ApplyZMCheck() is ZCheckZMFile with
// its result kept: it opens both files exclusively, computes the same plan,
// writes it, and reports any write or truncation that failed with the OS
// reason, where ZCheckZMFile itself answers S_OK whatever happened.
#pragma once

#include "dravix/media/zm_format.h"

#include <string>

namespace dravix::media {

struct ZMCheckPlan {
  // The file could be opened and its magic read; false leaves the rest unset.
  bool checked = false;
  // Why it was not checked (no such file, in use, not a regular file, ...).
  std::string notChecked;
  // The reported end (the time of the record before the last valid one), as
  // a ZM time.
  __int64 endZMTime = 0;
  // Valid records found from the data offset.
  int64_t validRecords = 0;
  // The header as it is, and as the repair leaves it (equal when intact).
  ZMFileHeader before;
  ZMFileHeader after;
  bool RepairsHeader() const;
  // The index: its path, its size, and the size it is cut to (-1: no cut;
  // also -1 when there is no index or it cannot be opened).
  std::string indexPath;
  int64_t indexSize = -1;
  int64_t indexCutTo = -1;
  bool CutsIndex() const { return indexCutTo >= 0; }
  // Set by ApplyZMCheck: what failed while writing, with the OS reason.
  std::string writeError;
};

// Read-only: what ZCheckZMFile would do to `path`. S_OK when the file was
// checked (plan->checked), E_FAIL when it could not be opened, E_UNEXPECTED
// for a wrong magic.
HRESULT PlanZMCheck(const char* path, ZMCheckPlan* plan);

// ZCheckZMFile's repair with its outcome: E_FAIL when the file could not be
// opened exclusively or a write or truncation failed (plan->writeError says
// which and why), E_UNEXPECTED for a wrong magic, S_OK otherwise. The index
// is cut before the header is written, so a repair cut short is finished by
// the next one. `strict` (for tools) also refuses to repair anything when
// the index exists but cannot be opened exclusively; without it, as
// ZCheckZMFile does, the header is repaired and the index left as it is.
HRESULT ApplyZMCheck(const char* path, ZMCheckPlan* plan, bool strict = false);

}  // namespace dravix::media
