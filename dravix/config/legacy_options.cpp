// Each old layout of "DVROption.zmi" is a list of pieces: a run of bytes in
// the file and where it lands in today's tagDSDVROPTION. Reading a layout is
// copying its pieces in order, so the four layouts differ only in their
// tables. The 1200 camera drops the two pre-recording words (offsets 84
// and 88) and the last two image-filter values.
#include "dravix/config/legacy_options.h"

#include "dravix/base/zfile.h"
#include "dravix/config/option_visitor.h"
#include "dravix/config/xmldoc.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/files.h"

#include <cstring>
#include <fstream>
#include <memory>

namespace dravix::config {
namespace {

struct Piece {
  size_t offset;  // in tagDSDVROPTION
  size_t length;
};

constexpr size_t kGeneral = offsetof(tagDSDVROPTION, dsGeneral);
constexpr size_t kCameras = offsetof(tagDSDVROPTION, dsCamera);
constexpr size_t kTail = offsetof(tagDSDVROPTION, dsView);  // view table .. user block
constexpr size_t kTailLength = offsetof(tagDSDVROPTION, dsPOS) - kTail;
static_assert(kTailLength == 6528 + 8 + 4 * 7564 + 16 * 156 + 1484 + 360);

std::vector<Piece> Pieces(LegacyLayout layout) {
  std::vector<Piece> p;
  if (layout == LegacyLayout::k1500) return {{0, sizeof(tagDSDVROPTION)}};
  if (layout != LegacyLayout::kUnversioned) p.push_back({0, 4});
  p.push_back({kGeneral + 0, 32});    // site name
  p.push_back({kGeneral + 32, 28});   // seven General words
  p.push_back({kGeneral + 60, 24});   // recycle block
  p.push_back({kGeneral + 84, 804});  // event report
  p.push_back({kGeneral + 888, 16});  // web and reset words
  p.push_back({kGeneral + 920, 4});   // modem-list switch
  p.push_back({kGeneral + 924, 16});  // modem ports
  if (layout == LegacyLayout::k1200) {
    p.push_back({kGeneral + 940, 788});  // dynamic IP
    for (int n = 0; n < kDSMaxCamera; ++n) {
      const size_t cam = kCameras + static_cast<size_t>(n) * sizeof(tagDSCAMERAOPTION);
      p.push_back({cam + 0, 84});     // name and thirteen words
      p.push_back({cam + 92, 3188});  // four words .. five image filters
    }
  } else {
    p.push_back({kCameras, kDSMaxCamera * sizeof(tagDSCAMERAOPTION)});
  }
  p.push_back({kTail, kTailLength});
  return p;
}

size_t PiecesSize(const std::vector<Piece>& pieces) {
  size_t n = 0;
  for (const Piece& p : pieces) n += p.length;
  return n;
}

std::vector<std::string> KeptDefaults(LegacyLayout layout) {
  switch (layout) {
    case LegacyLayout::k1100:
    case LegacyLayout::kUnversioned:
      return {"General/AutoResetTime", "General/dsDynamicIP", "POS/POS0..POS15"};
    case LegacyLayout::k1200:
      return {"General/AutoResetTime", "POS/POS0..POS15", "Camera0..15 PreRecoding and PreRecodingSec",
              "Camera0..15 ImageFilter values 5 and 6"};
    default:
      return {};
  }
}

// Cuts each text field to its array.
class Terminator final : public OptionVisitor {
 public:
  void Enter(std::string_view) override {}
  void Leave() override {}
  void Int(std::string_view, LONG&, LONG) override {}
  void Bool(std::string_view, BOOL&, BOOL) override {}
  void Float(std::string_view, float&, float) override {}
  void Text(std::string_view, char* field, size_t cap, std::string_view) override {
    if (cap > 0) field[cap - 1] = '\0';
  }
};

// Up to `limit` bytes of a file; false when it cannot be opened.
bool ReadHead(const std::string& path, size_t limit, std::string* bytes, size_t* fileSize) {
  if (!dravix::platform::CheckRegularFile(path)) return false;  // a FIFO must not block
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  in.seekg(0, std::ios::end);
  const std::streamoff end = in.tellg();
  *fileSize = end > 0 ? static_cast<size_t>(end) : 0;
  in.seekg(0, std::ios::beg);
  bytes->assign(std::min(limit, *fileSize), '\0');
  in.read(bytes->data(), static_cast<std::streamsize>(bytes->size()));
  bytes->resize(static_cast<size_t>(in.gcount()));
  return true;
}

LONG FirstWord(const std::string& bytes) {
  uint32_t v = 0;
  for (int i = 0; i < 4 && static_cast<size_t>(i) < bytes.size(); ++i)
    v |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[static_cast<size_t>(i)])) << (8 * i);
  return static_cast<LONG>(v);
}

// A whole-record file: accepted when it holds at least the record and,
// when `version` is given, starts with that word.
LegacyFileReport ReadRecordFile(const std::string& name, void* record, size_t size, const LONG* version) {
  LegacyFileReport r;
  r.file = name;
  std::string bytes;
  if (!ReadHead(GetModulePath() + name, size, &bytes, &r.bytes)) return r;
  r.present = true;
  if (bytes.size() < size) {
    r.note = "too short: " + std::to_string(r.bytes) + " bytes, the record has " + std::to_string(size);
    return r;
  }
  if (version != nullptr && FirstWord(bytes) != *version) {
    r.note = "version word " + std::to_string(FirstWord(bytes)) + ", expected " + std::to_string(*version);
    return r;
  }
  std::memcpy(record, bytes.data(), size);
  r.accepted = true;
  return r;
}

}  // namespace

const char* LegacyLayoutName(LegacyLayout layout) {
  switch (layout) {
    case LegacyLayout::kAbsent:
      return "absent";
    case LegacyLayout::k1500:
      return "1500";
    case LegacyLayout::k1100:
      return "1100";
    case LegacyLayout::k1200:
      return "1200";
    case LegacyLayout::kUnversioned:
      return "unversioned";
    case LegacyLayout::kRejected:
      return "rejected";
  }
  return "?";
}

size_t LegacyLayoutSize(LegacyLayout layout) {
  if (layout == LegacyLayout::kAbsent || layout == LegacyLayout::kRejected) return 0;
  return PiecesSize(Pieces(layout));
}

bool MigrationReport::AnyAccepted() const {
  for (const auto& f : files)
    if (f.accepted) return true;
  return false;
}

LegacyLayout ReadLegacyDVROption(const unsigned char* data, size_t size, tagDSDVROPTION& rec,
                                 LegacyFileReport* report) {
  LegacyLayout layout = LegacyLayout::kUnversioned;
  if (size >= 4) {
    const LONG first =
        static_cast<LONG>(static_cast<uint32_t>(data[0]) | (static_cast<uint32_t>(data[1]) << 8) |
                          (static_cast<uint32_t>(data[2]) << 16) | (static_cast<uint32_t>(data[3]) << 24));
    if (first == 1500) layout = LegacyLayout::k1500;
    if (first == 1100) layout = LegacyLayout::k1100;
    if (first == 1200) layout = LegacyLayout::k1200;
  }
  const std::vector<Piece> pieces = Pieces(layout);
  const size_t need = PiecesSize(pieces);
  if (size < need) {
    if (report != nullptr)
      report->note = "too short for the " + std::string(LegacyLayoutName(layout)) + " layout: " + std::to_string(size) +
                     " bytes, it needs " + std::to_string(need);
    return LegacyLayout::kRejected;
  }
  auto* out = reinterpret_cast<unsigned char*>(&rec);
  size_t at = 0;
  for (const Piece& p : pieces) {
    std::memcpy(out + p.offset, data + at, p.length);
    at += p.length;
  }
  if (layout != LegacyLayout::k1500) rec.nVersion = kDSOptionVersion;
  // Cut the texts through a whole-document copy (the visitor walks that).
  auto whole = std::make_unique<tagDSZEPLODVROPTION>();
  whole->dsDVROption = rec;
  TerminateOptionTexts(*whole);
  rec = whole->dsDVROption;
  if (report != nullptr) report->keptDefaults = KeptDefaults(layout);
  return layout;
}

void TerminateOptionTexts(tagDSZEPLODVROPTION& option) {
  Terminator t;
  VisitOptionSections(t, option, kAllSections);
}

MigrationReport MigrateLegacyOptions(tagDSZEPLODVROPTION& option, ZXMLMGR& doc) {
  MigrationReport report;
  const std::string home = GetModulePath();

  // The main file, into the defaults.
  {
    LegacyFileReport r;
    r.file = kLegacyDVROptionFile;
    std::string bytes;
    if (ReadHead(home + r.file, sizeof(tagDSDVROPTION), &bytes, &r.bytes)) {
      r.present = true;
      auto rec = std::make_unique<tagDSDVROPTION>(option.dsDVROption);
      r.layout = ReadLegacyDVROption(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), *rec, &r);
      if (r.layout != LegacyLayout::kRejected) {
        r.accepted = true;
        option.dsDVROption = *rec;
        // Keep what an existing document holds outside the main record.
        auto save = std::make_unique<tagDSZEPLODVROPTION>(option);
        if (platform::PathExists(doc.GetFilename())) {
          doc.LoadOption(*save);
          save->dsDVROption = *rec;
        }
        report.savedBeforeLoad = doc.SaveOption(*save, 0) != 0;
      }
    }
    report.files.push_back(r);
  }

  doc.LoadOption(option);

  // The record files, into what the document holds.
  const LONG audioVersion = option.dsAudioExpress.nVersion;
  report.files.push_back(
      ReadRecordFile("AudioOption.zmi", &option.dsAudioExpress, sizeof option.dsAudioExpress, &audioVersion));
  report.files.push_back(
      ReadRecordFile("PlayerAudioOption.zmi", &option.dsPlayerAudio, sizeof option.dsPlayerAudio, nullptr));
  report.files.push_back(ReadRecordFile("TALKOption.zmi", &option.dsTalkOption, sizeof option.dsTalkOption, nullptr));
  report.files.push_back(ReadRecordFile("PlayerOption.zmi", &option.dsPreference, sizeof option.dsPreference, nullptr));
  {
    tagDSPLAYERAUDIO older{};
    LegacyFileReport r = ReadRecordFile("PlayAudioOption.zmi", &older, sizeof older, nullptr);
    if (r.accepted && !report.files[2].accepted)
      option.dsPlayerAudio = older;
    else if (r.accepted)
      r.note = "superseded by PlayerAudioOption.zmi";
    report.files.push_back(r);
  }
  TerminateOptionTexts(option);
  if (report.AnyAccepted()) report.savedAfter = doc.SaveOption(option, 0) != 0;

  // Only what reached the document is deleted.
  for (size_t i = 0; i < report.files.size(); ++i) {
    LegacyFileReport& f = report.files[i];
    if (!f.accepted) continue;
    const bool saved = i == 0 ? report.savedBeforeLoad : report.savedAfter;
    if (saved) f.deleted = platform::DeleteFileAt(home + f.file);
  }
  return report;
}

}  // namespace dravix::config
