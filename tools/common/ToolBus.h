// The --bus option every tool takes, so that its events and phone messages reach the other
// processes of the host: "--bus session" (the session bus) or "--bus ADDRESS" (a D-Bus address
// such as "unix:path=/tmp/ovbus/socket"), also written "--bus=WHERE". Without it a tool stays
// on the loopback transport and reaches nothing outside itself.
//
// Single-threaded use from main().
#ifndef OVBASE_TOOLS_COMMON_TOOLBUS_H
#define OVBASE_TOOLS_COMMON_TOOLBUS_H

namespace ovtool {

const int EXIT_UNAVAILABLE = 69; // the bus cannot be reached (sysexits.h)

// One line of the usage texts, for the tools to print with their own.
extern const char* const BUS_USAGE;

// Takes --bus WHERE out of the leading options of ARGV (adjusting ARGC) and connects the
// program there, first creating the QCoreApplication that Qt's D-Bus needs when the program
// has none (it lives until exit). Returns 0 when there was no --bus or the connection is
// made; otherwise says why and returns EXIT_USAGE (no WHERE) or EXIT_UNAVAILABLE. Call it
// before the library's event facade is first used:
//     if (int rc = ovtool::useBusOption(argc, argv))
//         return rc;
int useBusOption(int& argc, char** argv);

// For a message that nobody received: "" once useBusOption connected the program to a bus,
// otherwise a reminder that without --bus the program reaches only itself.
const char* busHint();

} // namespace ovtool

#endif
