// Operations the worker binds but never calls. They resolve and answer with
// a failure; the two error-text operations answer for real.
#include <string>

#include "zeb_cf_object.h"
#include "zeb_exports.h"

extern "C" {

void* AMRestoreModeDeviceCreate(uint32_t, uint32_t, uint32_t) { return nullptr; }

int32_t AMRestoreRegisterForDeviceNotifications(void*, void*, void*, void*, uint32_t, void*) {
    return kZebAMDUnsupported;
}

int32_t AMDPostNotification(AMDServiceConnectionRef, CFStringRef, CFDictionaryRef) { return kZebAMDUnsupported; }
int32_t AMDShutdownNotificationProxy(AMDServiceConnectionRef) { return kZebAMDUnsupported; }
int32_t AMDListenForNotifications(AMDServiceConnectionRef, void*, void*) { return kZebAMDUnsupported; }
int32_t AMDObserveNotification(AMDServiceConnectionRef, CFStringRef) { return kZebAMDUnsupported; }

int32_t AMDeviceLookupApplications(AMDeviceRef, CFDictionaryRef, CFDictionaryRef* out) {
    if (out) *out = nullptr;
    return kZebAMDUnsupported;
}

int32_t AMDeviceSecureUninstallApplication(AMDServiceConnectionRef, AMDeviceRef, CFStringRef, CFDictionaryRef,
                                           void*, void*) {
    return kZebAMDUnsupported;
}

int32_t AMDeviceSecureTransferPath(int32_t, AMDeviceRef, CFURLRef, CFDictionaryRef, void*, void*) {
    return kZebAMDUnsupported;
}

CFStringRef AMDCopyErrorText(int32_t code) {
    const char* text = "undefined error";
    switch (code) {
        case kZebAMDSuccess: text = "success"; break;
        case kZebAMDBadArgument: text = "bad argument"; break;
        case kZebAMDNotConnected: text = "device not connected"; break;
        case kZebAMDSessionInactive: text = "no session running"; break;
        case kZebAMDPasswordProtected: text = "device is locked with a passcode"; break;
        case kZebAMDInvalidHostID: text = "host is not paired with the device"; break;
        case kZebAMDServiceNotFound: text = "no such service"; break;
        case kZebAMDDeviceGone: text = "device is gone"; break;
        case kZebAMDUnsupported: text = "operation not supported"; break;
        case kZebAMDPairingPending: text = "waiting for the user to trust this computer"; break;
        default: break;
    }
    return new zebcf::String(text);
}

CFStringRef AFCCopyErrorString(int32_t code) {
    const char* text = "device error";
    switch (code) {
        case 0: text = "success"; break;
        case 8: text = "object not found"; break;
        case 9: text = "object is a directory"; break;
        case 10: text = "permission denied"; break;
        case 16: text = "object exists"; break;
        case kZebAFCBadArgument: text = "bad argument"; break;
        case kZebAFCIoError: text = "connection failed"; break;
        case kZebAFCProtocolError: text = "answer out of step with the protocol"; break;
        default: break;
    }
    return new zebcf::String(text);
}

}  // extern "C"
