#include "dravix/media/zm_record_walk.h"

#include <algorithm>
#include <limits>
#include <string>

namespace dravix::media {

ZMReadWindow::ZMReadWindow(const platform::File& file, size_t capacity)
    : file_(file), capacity_(capacity < 64 ? 64 : capacity), buffer_(new uint8_t[capacity_]) {}

int64_t ZMReadWindow::Get(uint64_t pos, size_t want, const uint8_t** data) {
  if (want > capacity_) want = capacity_;
  if (valid_ && pos >= base_ && pos - base_ <= filled_) {
    const size_t have = filled_ - static_cast<size_t>(pos - base_);
    if (have >= want || atEof_) {
      *data = buffer_.get() + (pos - base_);
      return static_cast<int64_t>(have);
    }
  }
  if (pos > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return 0;
  const size_t ask = pos < end_ ? static_cast<size_t>(std::min<uint64_t>(capacity_, end_ - pos)) : capacity_;
  const int64_t n = file_.PRead(buffer_.get(), ask, static_cast<int64_t>(pos));
  if (n < 0) {
    valid_ = false;
    return -1;
  }
  base_ = pos;
  filled_ = static_cast<size_t>(n);
  atEof_ = filled_ < ask || base_ + filled_ >= end_;
  valid_ = true;
  *data = buffer_.get();
  return n;
}

int LoadRecordAt(ZMReadWindow& window, uint64_t pos, ZMRecordAt* out) {
  const uint8_t* p = nullptr;
  const int64_t n = window.Get(pos, kZMRecordHeadSize + 4, &p);
  if (n < 0) return -1;
  if (n < kZMRecordHeadSize) return 0;
  out->offset = pos;
  out->head = ParseRecordHead(p);
  const size_t extra = static_cast<size_t>(n) - kZMRecordHeadSize;
  out->payloadBytes = extra < 4 ? extra : 4;
  for (size_t i = 0; i < out->payloadBytes; ++i) out->payload[i] = p[kZMRecordHeadSize + i];
  return 1;
}

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace

std::string IndexNameFirstDot(const std::string& path) {
  const size_t dot = path.find('.');
  if (dot == std::string::npos) return path + ".idx";
  return path.substr(0, dot) + ".idx";
}

std::string IndexNameLastDot(const std::string& path) {
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos) return std::string();
  return path.substr(0, dot) + ".idx";
}

std::string IndexNameLastDotOrAppend(const std::string& path) {
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos) return path + ".idx";
  return path.substr(0, dot) + ".idx";
}

std::string IndexNameForWriter(const std::string& path) {
  size_t nameStart = 0;
  for (size_t i = path.size(); i > 0; --i) {
    if (IsSeparator(path[i - 1])) {
      nameStart = i;
      break;
    }
  }
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot < nameStart) return path + ".idx";
  return path.substr(0, dot) + ".idx";
}

}  // namespace dravix::media
