// The language-string singleton: a LangTable (the database, read once per
// table) plus the two caches of texts handed out.
//
// States: closed (nothing tried since construction or CloseDataBase; a
// lookup opens), open, or failed (the open was tried and reported; lookups
// give "" without trying again until the next LoadLang).
#include "dravix/config/istring.h"

#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/config/lang_table.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace {

using dravix::config::LangHost;

std::atomic<int> g_host{IString::LIVE};
std::unique_ptr<IString> sm_inst;

constexpr char kEmpty[] = "";

// The message a failed open shows. It belongs in the general log too: when
// dravix/log/ilog.h is part of the library, add here
//   ILog::Instance()->Write("Database Open Error !!\r\n");
// (a closed log ignores the write).
void ReportDatabaseOpenError(const std::string& detail) {
  std::fprintf(stderr, "Database Open Error !!\n  %s\n", detail.c_str());
}

std::string MultiLine(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
      out += '\n';
      ++i;
    } else if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      out += '\n';
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

struct IString::Impl {
  enum class State { kClosed, kOpen, kFailed };

  std::mutex mutex;
  State state = State::kClosed;
  dravix::config::LangTable table;
  std::unordered_map<UINT, std::string> texts;       // LoadStringA
  std::unordered_map<UINT, std::string> multiTexts;  // LoadMultiString

  void Close() {
    table.Close();
    texts.clear();
    multiTexts.clear();
    state = State::kClosed;
  }

  void Open() {
    Close();
    const LangHost host = g_host.load() == PLAYER ? LangHost::kPlayer : LangHost::kLive;
    const std::string folder = GetModulePath();
    std::string error;
    if (!table.Open(host, folder, &error)) {
      ReportDatabaseOpenError(error);
      state = State::kFailed;
      return;
    }
    table.Select(dravix::config::ChooseLangTable(host, folder));
    state = State::kOpen;
  }

  // The row of `id`, opening the database first when nothing is open.
  const dravix::config::LangRow* Find(UINT id) {
    if (state == State::kClosed) Open();
    if (state != State::kOpen) return nullptr;
    std::string error;
    const dravix::config::LangRow* row = table.Find(id, &error);
    if (!error.empty()) std::fprintf(stderr, "%s\n", error.c_str());
    return row;
  }
};

IString::IString() : impl_(new Impl) {}

IString::~IString() {
  impl_->Close();
  delete impl_;
}

IString* IString::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IString(); });
}

void IString::SetHost(HOST host) { g_host.store(host); }

IString::HOST IString::GetHost() { return static_cast<HOST>(g_host.load()); }

int IString::LoadLang(LANGUAGE /*language*/) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->Open();
  return 1;
}

int IString::Load(LANGUAGE language) { return LoadLang(language); }

const char* IString::LoadStringA(UINT id) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  if (const auto it = impl_->texts.find(id); it != impl_->texts.end()) return it->second.c_str();
  const dravix::config::LangRow* row = impl_->Find(id);
  if (row == nullptr) return kEmpty;
  return impl_->texts.emplace(id, row->text).first->second.c_str();
}

const char* IString::LoadMultiString(UINT id) {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  if (const auto it = impl_->multiTexts.find(id); it != impl_->multiTexts.end()) return it->second.c_str();
  const dravix::config::LangRow* row = impl_->Find(id);
  if (row == nullptr) return kEmpty;
  return impl_->multiTexts.emplace(id, MultiLine(row->text.empty() ? row->national : row->text)).first->second.c_str();
}

void IString::CloseDataBase() {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->Close();
}
