#include "settings/NR_OpProfile.h"

#include "types/FnLog.h"

NR_OpProfile::NR_OpProfile() {}

NR_OpProfile::~NR_OpProfile() {}

int NR_OpProfile::checkInstall() {
    // No profile list is shipped with this build, so no PLMN can match.
    OV_LOG(2, "NR_OpProfile::checkInstall: no operator profile to install.\n\n");
    return 1;
}
