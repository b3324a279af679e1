// Where the cross-process objects live: every named mutex and shared-memory
// region stands for a file under /dev/shm whose name carries the namespace
// ($DRAVIX_IPC_NAMESPACE, so parallel tests never share objects), the kind
// of object and its name, escaped. The providers of named objects and the
// tools that look at them take the names from here.
#pragma once

#include <string>

namespace dravix::platform {

// The namespace prefix of every named object: $DRAVIX_IPC_NAMESPACE or
// "default".
std::string IpcNamespace();
// The file that stands for a named object of a kind ("mutex", "shm"):
// /dev/shm/dravix.<namespace>.<kind>.<escaped name>.
std::string IpcObjectPath(const std::string& kind, const std::string& name);

}  // namespace dravix::platform
