// The steps of the demo, one per subsystem. Each prints its account to standard output and
// returns false when something did not go as it should.
#ifndef OVBASE_TOOLS_OVDEMO_DEMO_H
#define OVBASE_TOOLS_OVDEMO_DEMO_H

#include <string>

// A settings-style attribute map written, loaded back and read (types).
bool demoAttrMap();

// The item template read from the device and its fonts (dptemplate).
bool demoTemplate();

bool demoSettings(const std::string& root);

// Handlers, a published event coming back over the bus, and a simulated flip (eventstatuslib).
bool demoEvents();
bool demoTimer(); // a 3-second timer fired on the timer thread (timer)

// Network access at home and roaming, in and out of the friendly networks, and a server URL
// filled with the phone's values (utility).
bool demoEngine();

#endif
