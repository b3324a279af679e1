// The running processes, read from /proc.
#pragma once

#include <string>
#include <vector>

namespace dravix::platform {

struct ProcessEntry {
  int pid = 0;
  // Base name of the process's executable (/proc/<pid>/exe), or "unknown"
  // when it cannot be read (kernel threads, other users' processes).
  std::string name;
};

// Every process visible in /proc at the moment of the call (this one
// included). Empty when /proc cannot be read.
std::vector<ProcessEntry> ListProcesses();

}  // namespace dravix::platform
