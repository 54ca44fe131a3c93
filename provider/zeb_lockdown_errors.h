// Lockdown errors as the device library's result codes.
#pragma once

#include <libimobiledevice/lockdown.h>

#include "zeb_mobile_device_api.h"

namespace zebprov {

inline int32_t LockdownToResult(lockdownd_error_t err) {
    switch (err) {
        case LOCKDOWN_E_SUCCESS: return kZebAMDSuccess;
        case LOCKDOWN_E_INVALID_ARG: return kZebAMDBadArgument;
        case LOCKDOWN_E_PASSWORD_PROTECTED: return kZebAMDPasswordProtected;
        case LOCKDOWN_E_INVALID_HOST_ID: return kZebAMDInvalidHostID;
        case LOCKDOWN_E_INVALID_SERVICE: return kZebAMDServiceNotFound;
        case LOCKDOWN_E_NO_RUNNING_SESSION: return kZebAMDSessionInactive;
        case LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING: return kZebAMDPairingPending;
        case LOCKDOWN_E_MUX_ERROR: return kZebAMDNotConnected;
        default: return kZebAMDUndefinedError;
    }
}

}  // namespace zebprov
