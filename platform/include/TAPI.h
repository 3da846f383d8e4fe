// Telephony calls of the platform. Each returns TAPI_SUCCESS or an error code.
#ifndef OVPLATFORM_TAPI_H
#define OVPLATFORM_TAPI_H

enum TAPI_RESULT_E {
    TAPI_SUCCESS = 0,
    TAPI_ERR_FAILURE = 1,
    TAPI_ERR_SIM_ABSENT = 2,
    TAPI_ERR_NOT_FOUND = 3,
    TAPI_ERR_INVALID_PARAM = 4
};

// Roaming state reported by the phone message client.
enum TAPI_NETWORK_ROAM_E { TAPI_NETWORK_ROAM_OFF = 0, TAPI_NETWORK_ROAM_ON = 1 };

// Charger state reported by the phone message client.
enum TAPI_CHARGER_STATUS_E {
    TAPI_CHARGER_CONNECTED = 0,
    TAPI_CHARGER_DISCONNECTED = 1,
    TAPI_CHARGER_FAULT = 2
};

#define TAPI_SIM_MCC_LEN_MAX 3
#define TAPI_SIM_MNC_LEN_MAX 3
#define TAPI_SIM_MSIN_LEN_MAX 10
#define TAPI_OWNNUMBER_LEN_MAX 40

struct TAPI_SIM_IMSI_INFO_T {
    char szMcc[TAPI_SIM_MCC_LEN_MAX + 1];
    char szMnc[TAPI_SIM_MNC_LEN_MAX + 1];
    char szMsin[TAPI_SIM_MSIN_LEN_MAX + 1];
};

struct TAPI_OWNNUMBER_ENTRY_T {
    char szNumber[TAPI_OWNNUMBER_LEN_MAX + 1];
};

// The SIM's IMSI split into MCC, MNC and MSIN.
int TAPI_SIM_GetImsiExt(TAPI_SIM_IMSI_INFO_T* info);
// Own-number entry INDEX of the SIM (0 is the first line).
int TAPI_OWNNUMBER_GetEntry(int index, TAPI_OWNNUMBER_ENTRY_T* entry);
// *STATUS is 1 when the network provides its time (NITZ), 0 otherwise.
int TAPI_NETWORK_GetNitzStatus(int* status);

#endif
