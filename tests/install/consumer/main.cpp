// An outside program using the installed library.
#include <dravix/base/zfile.h>

#include <cstdio>

int main() {
  SetModulePath("/srv/recorder");
  const std::string folder = GetModulePath();
  std::printf("program folder: %s\n", folder.c_str());
  return folder == "/srv/recorder/" ? 0 : 1;
}
