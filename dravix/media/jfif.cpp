#include "dravix/media/jfif.h"

namespace dravix::media {

bool EnsureJfifApp0(std::vector<uint8_t>* jpeg) {
  if (jpeg == nullptr || jpeg->size() < 4) return false;
  const std::vector<uint8_t>& j = *jpeg;
  if (j[0] != 0xFF || j[1] != 0xD8 || j[2] != 0xFF) return false;
  if (j[3] == 0xE0) return true;
  jpeg->insert(jpeg->begin() + 2, std::begin(kJfifApp0), std::end(kJfifApp0));
  return true;
}

}  // namespace dravix::media
