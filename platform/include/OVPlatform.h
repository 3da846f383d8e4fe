// What only a host has of the phone platform: the device root under which the library's
// built-in device paths are opened (on the phone the root is empty and paths stay as they
// are), the choice of how events and messages reach other processes, the controls of the
// simulated phone, and the shutdown of the event bus.
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

// The transport of the event bus, the system channel and the phone message client. By default
// (loopback) they stay inside the process. Over D-Bus, everything published, sent or posted
// reaches every process connected to the same dbus-daemon, this one included; deliveries keep
// their threads (bus events on the bus's delivery thread, channel messages and phone signals
// on the receiver's Qt event loop).
//
// Choose D-Bus once, from the main thread, before anything uses the bus, a QCopChannel or a
// PHONE_AsyncMsgReceiver (so before the event facade is first used). A QCoreApplication must
// exist first: Qt's D-Bus module needs one. False, with the reason in *REASON, when the daemon
// cannot be reached, the bus is already in use, or the process is already connected; the
// process then stays as it was. Once the daemon goes away, the connection stays lost: bus
// calls return ES_ERR_BUS_DOWN, sends return false, and nothing more arrives.
bool useSessionBus(std::string* reason = nullptr);
bool useBusAddress(const std::string& address, std::string* reason = nullptr);

// "loopback", "session bus", or the address given to useBusAddress.
std::string busName();

// False once a D-Bus connection is lost; always true with loopback.
bool busConnected();

// The simulated phone. Its state is a file under the device root (phoneStatePath()), so all
// processes on one root see one phone; values not yet set read as the defaults below. Each
// setter also sends what a real phone sends for the change, when the value changes:
//   flip       "FlipOpened" / "FlipClosed" on "QBX/System"
//   slider     "sliderOpened" / "sliderClosed" on "QBX/System"
//   brightness "DPL_BKLGT_DIMMED" on reaching 0, "DPL_BKLGT_RESTORED" on leaving 0
//   roaming, GPRS, low battery, charger: the phone message client's signal
// Over D-Bus those reach the adapters of every process. Setters return false when the state
// file cannot be written, or when the D-Bus connection is lost before the change was sent (the
// state is written all the same). A change nobody listens to is not a failure.
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
// The keys the state file holds, in byte order (values never set are not among them).
std::vector<std::string> phoneValueKeys();

// Messages a real phone sends on its own: master clear and reset, the shut-down policy, and a
// change of the date or time (FLAGS bits 1 date, 2 time, 4 zone; times in seconds since 1970).
// False when no process has the system channel open (nobody got it) or the D-Bus connection
// is lost (busConnected() tells which).
bool sendMasterClear();
bool sendMasterReset();
bool sendKillingPolicy(int policy);
bool sendTimeInfoChanged(int flags, long previousTime, long newTime);

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
