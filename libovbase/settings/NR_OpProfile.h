// NR_OpProfile: installs the operator profile that matches the SIM. Only the phone process
// creates one (inside OrvelSettingMgr's construction), calls checkInstall() once and destroys
// it with the profile list it built.
//
// This build carries no operator profiles: the profile store and its PLMN matching belong to
// the phone's firmware, not to this library. checkInstall() therefore finds nothing to install,
// leaves every setting as it is and reports 1. On a host the phone-process test is never true,
// so it is not even called there.
#ifndef OVBASE_SETTINGS_NR_OPPROFILE_H
#define OVBASE_SETTINGS_NR_OPPROFILE_H

#include "types/ovTypes.h"

#include <vector>

class NR_OpProfile {
public:
    NR_OpProfile();
    ~NR_OpProfile();

    NR_OpProfile(const NR_OpProfile&) = delete;
    NR_OpProfile& operator=(const NR_OpProfile&) = delete;

    // 0 when a profile was installed; 1 when none matched (always, in this build).
    int checkInstall();

    // The profiles known to this build, by name; empty.
    const std::vector<ovTypes::ID>& profiles() const { return mProfiles; }

private:
    std::vector<ovTypes::ID> mProfiles;
};

#endif
