// What only a host has of the phone platform: the device root under which the library's
// built-in device paths are opened. On the phone the root is empty and paths stay as they are.
#ifndef OVPLATFORM_OVPLATFORM_H
#define OVPLATFORM_OVPLATFORM_H

#include <string>

namespace ovplatform {

// Sets the directory that built-in device paths are placed under ("" for none).
void setDeviceRoot(const std::string& dir);

// The current device root; starts as the build-time default OVBASE_DEVICE_ROOT.
std::string deviceRoot();

// The root followed by PATH. Paths under "/proc" are never mapped.
std::string devicePath(const std::string& path);

} // namespace ovplatform

#endif
