// Status utilities of the platform. Each returns UTIL_SUCCESS or an error code and passes its
// result through the pointer. Texts are UTF-8, null-terminated, cut to nothing when the buffer
// is too small (UTIL_ERR_BUFFER).
#ifndef OVPLATFORM_UTIL_H
#define OVPLATFORM_UTIL_H

enum UTIL_RESULT_E {
    UTIL_SUCCESS = 0,
    UTIL_ERR_FAILURE = 1,
    UTIL_ERR_BUFFER = 2,
    UTIL_ERR_INVALID_PARAM = 3
};

int UTIL_GetRoamStatus(int* roaming);          // non-zero: roaming
int UTIL_GetGprsServiceStatus(int* available); // non-zero: packet data available
int UTIL_GetLowBatteryStatus(int* low);        // 1: battery low, 0: battery OK
int UTIL_GetFlipStatus(int* closed);           // 0: open, 1: closed
int UTIL_GetSliderStatus(int* closed);         // 0: open, 1: closed
int UTIL_GetChargeStatus(int* attached);       // non-zero: charger attached

int UTIL_GetPhoneModelId(char* buf, int size);
int UTIL_GetPhoneSwVersion(char* buf, int size);
int UTIL_GetHomeCarrierName(char* buf, int size);
int UTIL_GetCurrentPlmn(char* buf, int size);
int UTIL_GetCurrentCarrierName(char* buf, int size);

int UTIL_Language_getSystemLanguageCode(char* buf, int size);
int UTIL_Language_getInstalledLanguageCount(int* count);
int UTIL_Language_getInstalledLanguageCode(int index, char* buf, int size);

#endif
