#include "dravix/media/picture.h"

#include <cstddef>

namespace dravix::media {

void Picture::Resize(int w, int h) {
  width = w > 0 ? w & ~1 : 0;
  height = h > 0 ? h & ~1 : 0;
  const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
  y.resize(luma);
  u.resize(luma / 4);
  v.resize(luma / 4);
}

}  // namespace dravix::media
