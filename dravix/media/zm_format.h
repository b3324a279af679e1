// The recording-file layout ("ZMFF") and its ".idx" index, byte by byte,
// and the rules that say whether a data record is whole and plausible.
//
// A recording file is a 69-byte header, one stream record per stream, free
// space up to the data offset (4096 in every file written here; a clip may
// keep a text list there) and a gap-free run of data records, each a 10-byte
// head and a payload. All integers are little-endian and unaligned. Times
// are FILETIME values of the local wall clock (no zone conversion) or
// millisecond offsets from the header's start time.
//
// The index file ("name.idx") is a 16-byte header and 16-byte entries
// (time ms, video frame ordinal, byte offset of a record head), ascending
// and sparse.
//
// Everything here is pure byte handling with no I/O; values read from a file
// are checked by the callers before being used as sizes or offsets.
#pragma once

#include "dravix/platform/wintypes.h"

#include <bit>
#include <cstring>

namespace dravix::media {

static_assert(std::endian::native == std::endian::little, "recording files are little-endian");

// --- Sizes and fixed values ----------------------------------------------
inline constexpr uint32_t kZMHeaderSize = 69;
inline constexpr uint32_t kZMDefaultDataOffset = 4096;
// Stream record: tag and length (8), the 68 leading bytes of the media type
// (everything but the trailing format pointer), then the format block.
inline constexpr uint32_t kZMStreamHeadSize = 8;
inline constexpr uint32_t kZMMediaTypeSize = 68;
inline constexpr uint32_t kZMStreamFixedSize = kZMStreamHeadSize + kZMMediaTypeSize;  // 76
inline constexpr uint32_t kZMRecordHeadSize = 10;
inline constexpr uint32_t kZMMaxPayload = 0x100000;
inline constexpr uint32_t kZMIndexHeaderSize = 16;
inline constexpr uint32_t kZMIndexEntrySize = 16;
// The 256 KiB buffer of the forward walks.
inline constexpr uint32_t kZMWalkBuffer = 0x40000;
inline constexpr int64_t kTicksPerMs = 10000;  // FILETIME units per millisecond

// --- Header field offsets -------------------------------------------------
inline constexpr size_t kHdrMagic = 0;
inline constexpr size_t kHdrHeaderLength = 8;
inline constexpr size_t kHdrStartTime = 12;
inline constexpr size_t kHdrDuration = 20;
inline constexpr size_t kHdrLeadIn = 28;
inline constexpr size_t kHdrStreamCount = 44;
inline constexpr size_t kHdrDataOffset = 45;
inline constexpr size_t kHdrDataLength = 49;

// --- Stream record offsets (from the record's first byte) ----------------
inline constexpr size_t kStrTag = 0;
inline constexpr size_t kStrLength = 4;
inline constexpr size_t kStrMajorType = 8;
inline constexpr size_t kStrSubtype = 24;
inline constexpr size_t kStrFixedSize = 40;
inline constexpr size_t kStrTemporal = 44;
inline constexpr size_t kStrSampleSize = 48;
inline constexpr size_t kStrFormatType = 52;
inline constexpr size_t kStrPointerSlot = 68;
inline constexpr size_t kStrFormatLength = 72;
inline constexpr size_t kStrFormat = 76;

// VIDEOINFOHEADER: 48 bytes of rectangles, rates and frame time, then a
// 40-byte BITMAPINFOHEADER whose width and height sit at 52 and 56.
inline constexpr uint32_t kVideoInfoSize = 88;
inline constexpr size_t kVihWidth = 52;
inline constexpr size_t kVihHeight = 56;
// WAVEFORMATEX without extra bytes.
inline constexpr uint32_t kWaveFormatSize = 18;

// --- GUIDs ----------------------------------------------------------------
// MEDIATYPE_Video: its first four bytes on disk are "vids".
inline constexpr GUID kMediaTypeVideo = {0x73646976, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID kMediaTypeAudio = {0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID kSubtypeH263 = {0xD16B2261, 0x393B, 0x11D4, {0xB5, 0xFF, 0x00, 0x50, 0xBA, 0x00, 0x39, 0xD2}};
inline constexpr GUID kSubtypeMJPEG = {0x5BDFBCE8, 0x7C38, 0x11D5, {0x96, 0x8B, 0x00, 0x50, 0xBA, 0xE2, 0x38, 0xCE}};
inline constexpr GUID kSubtypePCM = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID kFormatVideoInfo = {0x05589F80, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr GUID kFormatWaveFormatEx = {
    0x05589F81, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};

// Codec codes reported for the two private video subtypes.
enum ZMCodec : int { kCodecH263 = 0, kCodecMJPEG = 1 };

// Picture-size codes: index into kZMPictureSizes.
struct ZMPictureSize {
  int32_t width;
  int32_t height;
};
inline constexpr ZMPictureSize kZMPictureSizes[7] = {{320, 240}, {640, 240}, {640, 480}, {720, 240},
                                                     {720, 480}, {720, 288}, {720, 576}};
// The code of a width and height, or -1 for any other pair.
int PictureSizeCode(int32_t width, int32_t height);

// 64-bit sums and differences of values read from files wrap around as the
// recorder's own arithmetic did, instead of overflowing.
inline int64_t WrapAdd(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t WrapSub(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// --- Little-endian loads and stores --------------------------------------
template <typename T>
inline T LoadLE(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <typename T>
inline void StoreLE(uint8_t* p, T v) {
  std::memcpy(p, &v, sizeof v);
}
inline GUID LoadGuid(const uint8_t* p) { return LoadLE<GUID>(p); }
inline void StoreGuid(uint8_t* p, const GUID& g) { StoreLE(p, g); }

// --- The header -----------------------------------------------------------
// The 69 header bytes with typed access to the fields this library reads.
struct ZMFileHeader {
  uint8_t bytes[kZMHeaderSize] = {};

  bool HasMagic() const { return std::memcmp(bytes + kHdrMagic, "ZMFF", 4) == 0; }
  uint32_t HeaderLength() const { return LoadLE<uint32_t>(bytes + kHdrHeaderLength); }
  int64_t StartTime() const { return LoadLE<int64_t>(bytes + kHdrStartTime); }
  int64_t Duration() const { return LoadLE<int64_t>(bytes + kHdrDuration); }
  int64_t LeadIn() const { return LoadLE<int64_t>(bytes + kHdrLeadIn); }
  uint8_t StreamCount() const { return bytes[kHdrStreamCount]; }
  uint32_t DataOffset() const { return LoadLE<uint32_t>(bytes + kHdrDataOffset); }
  uint64_t DataLength() const { return LoadLE<uint64_t>(bytes + kHdrDataLength); }
  // Data offset + data length (wraps like the 64-bit sum it is).
  uint64_t DataEnd() const { return DataOffset() + DataLength(); }

  void SetMagic() { std::memcpy(bytes + kHdrMagic, "ZMFF", 4); }
  void SetHeaderLength(uint32_t v) { StoreLE(bytes + kHdrHeaderLength, v); }
  void SetStartTime(int64_t v) { StoreLE(bytes + kHdrStartTime, v); }
  void SetDuration(int64_t v) { StoreLE(bytes + kHdrDuration, v); }
  void SetLeadIn(int64_t v) { StoreLE(bytes + kHdrLeadIn, v); }
  void SetStreamCount(uint8_t v) { bytes[kHdrStreamCount] = v; }
  void SetDataOffset(uint32_t v) { StoreLE(bytes + kHdrDataOffset, v); }
  void SetDataLength(uint64_t v) { StoreLE(bytes + kHdrDataLength, v); }
};

// --- Data records ---------------------------------------------------------
struct ZMRecordHead {
  uint8_t stream = 0;
  uint32_t time = 0;    // ms from the start time
  uint32_t length = 0;  // payload bytes
  uint8_t flag = 0;     // 0 or 1; 1 marks a key (self-contained) video frame
  // Head plus payload.
  uint64_t Size() const { return kZMRecordHeadSize + static_cast<uint64_t>(length); }
};
inline ZMRecordHead ParseRecordHead(const uint8_t* p) {
  return ZMRecordHead{p[0], LoadLE<uint32_t>(p + 1), LoadLE<uint32_t>(p + 5), p[9]};
}
inline void StoreRecordHead(uint8_t* p, const ZMRecordHead& h) {
  p[0] = h.stream;
  StoreLE(p + 1, h.time);
  StoreLE(p + 5, h.length);
  p[9] = h.flag;
}

// What a video record's payload must begin with.
enum class ZMPictureCheck { kNone, kH263, kMJPEG };
ZMPictureCheck PictureCheckFor(const GUID& subtype);

// The facts a record is judged against.
struct ZMRecordRules {
  uint32_t streamCount = 0;
  int64_t durationMs = 0;  // header duration / 10000
  int videoStream = -1;    // 0 when the first stream is video, else -1
  ZMPictureCheck picture = ZMPictureCheck::kNone;
};

// Stream number, payload length (1..1 MiB) and flag (0 or 1): what makes a
// plausible record head.
bool IsPlausibleHead(const ZMRecordHead& h, uint32_t streamCount);
// The whole rule: plausible head, time within the duration, and for the
// video stream a payload that starts a picture. `payloadStart` holds
// `available` leading payload bytes (a payload shorter than the picture
// start it must carry is not a picture). Whether the record fits the data
// area is the caller's test.
bool IsValidRecord(const ZMRecordHead& h, const uint8_t* payloadStart, size_t available, const ZMRecordRules& rules);
// Whether the payload begins with the picture start of `check`.
bool StartsPicture(ZMPictureCheck check, const uint8_t* payload, size_t available);

// --- Index ------------------------------------------------------------------
struct ZMIndexEntry {
  uint32_t time = 0;    // ms from the start time
  uint32_t frame = 0;   // ordinal of the video record, from 0
  uint64_t offset = 0;  // byte offset of the record head in the recording
};
inline ZMIndexEntry ParseIndexEntry(const uint8_t* p) {
  return ZMIndexEntry{LoadLE<uint32_t>(p), LoadLE<uint32_t>(p + 4), LoadLE<uint64_t>(p + 8)};
}
inline void StoreIndexEntry(uint8_t* p, const ZMIndexEntry& e) {
  StoreLE(p, e.time);
  StoreLE(p + 4, e.frame);
  StoreLE(p + 8, e.offset);
}

}  // namespace dravix::media
