// What only a host has of the phone platform: the device root under which the library's
// built-in device paths are opened (on the phone the root is empty and paths stay as they
// are), the controls of the simulated phone, and the shutdown of the event bus.
#ifndef OVPLATFORM_OVPLATFORM_H
#define OVPLATFORM_OVPLATFORM_H

#include <string>
#include <vector>

namespace ovplatform {

// Sets the directory that built-in device paths are placed under ("" for none).
void setDeviceRoot(const std::string& dir);

// The current device root; starts as the build-time default OVBASE_DEVICE_ROOT.
std::string deviceRoot();

// The root followed by PATH. Paths under "/proc" are never mapped.
std::string devicePath(const std::string& path);

// The simulated phone. Its state is a file under the device root (phoneStatePath()), so all
// processes on one root see one phone; values not yet set read as the defaults below. Each
// setter also sends what a real phone sends for the change, when the value changes:
//   flip       "FlipOpened" / "FlipClosed" on "QBX/System"
//   slider     "sliderOpened" / "sliderClosed" on "QBX/System"
//   brightness "DPL_BKLGT_DIMMED" on reaching 0, "DPL_BKLGT_RESTORED" on leaving 0
//   roaming, GPRS, low battery, charger: the phone message client's signal
// Setters return false when the state file cannot be written.
std::string phoneStatePath();

bool setRoaming(bool roaming);                            // default false
bool setGprsAvailable(bool available);                    // default true
bool setLowBattery(bool low);                             // default false
bool setFlipOpen(bool open);                              // default false (closed)
bool setSliderOpen(bool open);                            // default false (closed)
bool setChargerAttached(bool attached);                   // default false
bool setLcdBrightness(int brightness);                    // default 5
bool setNitzAvailable(bool available);                    // default true
bool setImsi(const std::string& imsi, int mncLength = 2); // default "310260000000001"; "" = no SIM
bool setOwnNumber(const std::string& number);             // default "" (no entry)
bool setLanguageCode(const std::string& code);            // default "en"
bool setInstalledLanguages(const std::vector<std::string>& codes); // default {"en"}
bool setPhoneModelId(const std::string& model);                    // default "OV-HOST"
bool setPhoneSwVersion(const std::string& version);                // default "0.1"
bool setCurrentPlmn(const std::string& plmn);                      // default "31026"
bool setHomeCarrierName(const std::string& name);                  // default "Host Carrier"
bool setCurrentCarrierName(const std::string& name);               // default "Host Carrier"
// Any other value by its key in the state file (display values are "display.<property>").
bool setPhoneValue(const std::string& key, const std::string& value);
std::string phoneValue(const std::string& key, const std::string& fallback = "");

// Messages a real phone sends on its own: master clear and reset, the shut-down policy, and a
// change of the date or time (FLAGS bits 1 date, 2 time, 4 zone; times in seconds since 1970).
void sendMasterClear();
void sendMasterReset();
void sendKillingPolicy(int policy);
void sendTimeInfoChanged(int flags, long previousTime, long newTime);

// Makes the platform call NAME (for example "UTIL_GetFlipStatus") fail until cleared, to try
// the callers' failure paths.
void setCallFails(const std::string& name, bool fails);
bool callFails(const std::string& name);

// The file-system query that sizes the content cache: the block size and the total block count
// of the file system that holds PATH (statfs), or of the simulated file system given to PATH
// or to a directory above it. False, with errno set, when PATH cannot be queried.
bool fileSystemSize(const std::string& path, long& blockSize, long& totalBlocks);

// Gives DIR and everything under it a simulated file system of TOTALBLOCKS blocks of BLOCKSIZE
// bytes, so that a host or a test can size the cache without a small file system of its own.
// It is kept with the simulated phone's state, so every process on the device root sees it; a
// TOTALBLOCKS of 0 takes it away. Files still occupy what the real file system gives them, so
// a BLOCKSIZE equal to the real one keeps the two views in step. False when the state cannot
// be written.
bool setSimulatedFileSystem(const std::string& dir, long blockSize, long totalBlocks);

// Stops the event bus: deliveries still queued are discarded, a delivery under way is waited
// for (up to about two seconds; past that the delivery thread is left to finish alone), and
// later bus calls return ES_ERR_BUS_DOWN. It also runs on its own at process exit (atexit,
// registered when the bus is first used), so before the destruction of every static object
// that was complete by then. A static handler made later is destroyed first; its unsubscribe
// waits for a delivery into it that is under way.
void shutdownEventBus();

} // namespace ovplatform

#endif
