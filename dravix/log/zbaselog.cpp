// The size-limited logs.
//
// Writes pass the gate together: each is one append on an O_APPEND
// descriptor, so the kernel keeps every write whole. Opening, rotating and
// closing hold the gate exclusively, so no write can reach a
// descriptor that is being closed (or, worse, a number the kernel has
// already handed to another file). When several writers pass the 100th
// write together each of them checks the size, and only the first finds
// anything to rotate.
#include "dravix/log/zbaselog.h"

#include "dravix/base/zfile.h"
#include "dravix/config/switches.h"
#include "dravix/platform/append_file.h"
#include "dravix/platform/files.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace dravix::log {
namespace {

std::mutex g_base_mutex;
std::string g_embedded_base;  // empty: the default
std::atomic<FreeSpaceProbe> g_probe{nullptr};

std::string WithSeparator(std::string folder) {
  if (!folder.empty() && folder.back() != '/' && folder.back() != '\\') folder += '/';
  return folder;
}

}  // namespace

std::string EmbeddedBaseFolder() {
  {
    std::lock_guard<std::mutex> lock(g_base_mutex);
    if (!g_embedded_base.empty()) return g_embedded_base;
  }
  if (const char* env = std::getenv("DRAVIX_DRIVE_D"); env != nullptr && *env != '\0') return WithSeparator(env);
  return "/mnt/d/";
}

void SetEmbeddedBaseFolder(const char* folder) {
  std::lock_guard<std::mutex> lock(g_base_mutex);
  g_embedded_base = folder == nullptr ? std::string() : WithSeparator(folder);
}

void SetFreeSpaceProbe(FreeSpaceProbe probe) { g_probe.store(probe, std::memory_order_release); }

namespace {

// The free space of the disk holding the log: one fstatvfs on the open
// file. (The general disk query also classifies the drive, which costs
// several more system calls and means nothing for a file open for writing.)
__int64 FreeSpace(const std::string& path, const dravix::platform::AppendFile& file) {
  const FreeSpaceProbe probe = g_probe.load(std::memory_order_acquire);
  if (probe != nullptr) return probe(path.c_str());
  return file.FreeSpace();
}

}  // namespace

}  // namespace dravix::log

ZBaseLog::~ZBaseLog() {
  dravix::log::WriteGate::Exclusive gate(m_gate);
  m_file.Close();
  m_opened.store(0);
}

std::string ZBaseLog::GetFilePath() const {
  dravix::log::WriteGate::Shared gate(m_gate);
  return m_filePath;
}

std::string ZBaseLog::BareName() const {
  const size_t sep = m_filePath.find_last_of("/\\");
  return sep == std::string::npos ? m_filePath : m_filePath.substr(sep + 1);
}

bool ZBaseLog::Reopen() {
  if (!m_file.Open(m_filePath)) return false;
  m_opened.store(1, std::memory_order_release);
  return true;
}

BOOL ZBaseLog::SetFilename(const char* name) {
  if (name == nullptr) return FALSE;
  const std::string base = EnableZeploEmbeded() ? dravix::log::EmbeddedBaseFolder() : GetModulePath();
  const std::string path = base + name;
  dravix::log::WriteGate::Exclusive gate(m_gate);
  m_file.Close();
  m_opened.store(0);
  if (!m_file.Open(path)) return FALSE;
  m_opened.store(1, std::memory_order_release);
  m_filePath = path;
  if (m_file.Size() > kRotateSize) {
    m_file.Close();
    m_opened.store(0);
    RangeFile(BareName().c_str());
    if (!Reopen()) return FALSE;
  }
  return TRUE;
}

BOOL ZBaseLog::Write(const char* text) {
  if (text == nullptr) return FALSE;
  int count = 0;
  {
    dravix::log::WriteGate::Shared gate(m_gate);
    if (m_opened.load(std::memory_order_acquire) == 0) return FALSE;
    // A plain increment, as in a single-threaded log: writers racing here may
    // lose a count, which only delays the next check by a write or two.
    count = m_writeCount.load(std::memory_order_relaxed) + 1;
    m_writeCount.store(count, std::memory_order_relaxed);
    // The counter is not reset here: while the disk stays full every
    // following write checks it again.
    if (count >= kCheckEvery && dravix::log::FreeSpace(m_filePath, m_file) < kMinFreeSpace) return FALSE;
    if (!m_file.Append(text, std::strlen(text))) return FALSE;
  }
  if (count < kCheckEvery) return TRUE;
  return CheckSize();
}

BOOL ZBaseLog::CheckSize() {
  dravix::log::WriteGate::Exclusive gate(m_gate);
  if (m_opened.load() == 0) return FALSE;
  if (m_file.Size() > kRotateSize) {
    m_file.Close();
    m_opened.store(0);
    RangeFile(BareName().c_str());
    if (!Reopen()) return FALSE;
  }
  m_writeCount.store(0, std::memory_order_relaxed);
  return TRUE;
}

BOOL ZBaseLog::WriteV(const char* format, ...) {
  if (!IsOpen()) return FALSE;
  if (format == nullptr) return TRUE;
  char small[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int n = std::vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
    Write(small);
  } else if (n >= 0) {
    std::vector<char> big(static_cast<size_t>(n) + 1);
    std::vsnprintf(big.data(), big.size(), format, again);
    Write(big.data());
  }
  va_end(again);
  return TRUE;
}

BOOL ZBaseLog::RangeFile(const char* name) {
  const std::string target = GetModulePath() + "OLD" + (name == nullptr ? "" : name);
  // The move replaces the older generation in one step, so a move that
  // fails keeps it; on another disk the log is copied across, then removed.
  std::string error;
  if (!dravix::platform::MoveFileReplacing(m_filePath, target, &error)) {
    dravix::platform::OutputDebugText(("log rotation: " + error + "\n").c_str());
  }
  return TRUE;
}
