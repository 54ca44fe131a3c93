// The calling contract between the worker and the device library provider.
//
// The worker never links the provider: it resolves these names at run time
// (zeb_mobile_export_fun.h). The provider declares its exports from the same
// function types, so a signature that drifts on either side fails to compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

extern "C" {

// CF values are opaque, reference-counted handles. Every kind shares one
// pointer type so that callers pass them around without casts.
typedef const void* CFTypeRef;
typedef CFTypeRef CFStringRef;
typedef CFTypeRef CFNumberRef;
typedef CFTypeRef CFBooleanRef;
typedef CFTypeRef CFDataRef;
typedef CFTypeRef CFDateRef;
typedef CFTypeRef CFArrayRef;
typedef CFTypeRef CFMutableArrayRef;
typedef CFTypeRef CFDictionaryRef;
typedef CFTypeRef CFMutableDictionaryRef;
typedef CFTypeRef CFPropertyListRef;
typedef CFTypeRef CFWriteStreamRef;
typedef CFTypeRef CFURLRef;
typedef CFTypeRef CFAllocatorRef;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned char Boolean;
typedef double CFAbsoluteTime;

// Type identifiers that the worker compares against.
enum : CFTypeID {
    kZebCFStringTypeID = 7,
    kZebCFDictionaryTypeID = 18,
    kZebCFArrayTypeID = 19,
    kZebCFDataTypeID = 20,
    kZebCFBooleanTypeID = 21,
    kZebCFNumberTypeID = 22,
    kZebCFDateTypeID = 42,
    kZebCFWriteStreamTypeID = 38,
};

// Number types understood by CFNumberGetValue.
enum : CFIndex {
    kZebCFNumberSInt32Type = 3,
    kZebCFNumberSInt64Type = 4,
    kZebCFNumberFloat64Type = 6,
    kZebCFNumberIntType = 9,
};

enum : uint32_t {
    kZebCFStringEncodingASCII = 0x0600,
    kZebCFStringEncodingUTF8 = 0x08000100,
};

enum : CFIndex {
    kZebCFPropertyListXMLFormat = 100,
    kZebCFPropertyListBinaryFormat = 200,
};

// Device handles: opaque 64-bit values chosen by the provider. A handle stays
// valid for the life of the process; once its device has gone, every
// operation on it fails.
typedef struct ZebAMDevice* AMDeviceRef;
typedef struct ZebAMDeviceNotification* AMDeviceNotificationRef;
typedef struct ZebAMDServiceConnection* AMDServiceConnectionRef;
typedef struct ZebAFCConnection* AFCConnectionRef;
typedef struct ZebAFCDirectory* AFCDirectoryRef;
typedef struct ZebAFCKeyValue* AFCKeyValueRef;
typedef uint64_t AFCFileRef;

// Messages of a device notification.
enum : uint32_t {
    kZebDeviceAttached = 1,
    kZebDeviceDetached = 2,
    kZebDeviceUnknownEvent = 3,
    kZebDeviceTrustAnswered = 4,
};

// Interface types of AMDeviceGetInterfaceType.
enum : int32_t {
    kZebInterfaceUSB = 1,
    kZebInterfaceNetwork = 2,
};

// Result codes of the device operations (0 is success).
enum : int32_t {
    kZebAMDSuccess = 0,
    kZebAMDUndefinedError = static_cast<int32_t>(0xe8000001),
    kZebAMDBadArgument = static_cast<int32_t>(0xe8000007),
    kZebAMDNotConnected = static_cast<int32_t>(0xe8000012),
    kZebAMDSessionInactive = static_cast<int32_t>(0xe800001e),
    kZebAMDPasswordProtected = static_cast<int32_t>(0xe800001a),
    kZebAMDInvalidHostID = static_cast<int32_t>(0xe8000025),
    kZebAMDServiceNotFound = static_cast<int32_t>(0xe8000022),
    kZebAMDDeviceGone = static_cast<int32_t>(0xe8000084),
    kZebAMDUnsupported = static_cast<int32_t>(0xe80000b1),
    kZebAMDPairingPending = static_cast<int32_t>(0xe800008b),
};

// AFC results: 0 is success, otherwise the device's status code, or one of
// these for failures on the host side.
enum : int32_t {
    kZebAFCBadArgument = 7,
    kZebAFCIoError = 0x20,
    kZebAFCProtocolError = 0x21,
    kZebAFCTimedOut = 0x22,
};

struct AMDeviceNotificationInfo {
    AMDeviceRef device;
    uint32_t message;
    AMDeviceNotificationRef subscription;
};
typedef void (*AMDeviceNotificationCallback)(AMDeviceNotificationInfo* info, void* context);
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

}  // extern "C"

// Every operation as (name, result, parameter list), in the order of the
// binding table. kCFStreamPropertyDataWritten and kCFBooleanTrue are data and
// are declared apart.
#define ZEB_MOBILE_DEVICE_FUNCTIONS(X)                                                              \
    X(AMDeviceNotificationSubscribe, int32_t,                                                       \
      (AMDeviceNotificationCallback, uint32_t, uint32_t, void*, AMDeviceNotificationRef*))          \
    X(AMDeviceNotificationUnsubscribe, int32_t, (AMDeviceNotificationRef))                          \
    X(AMDeviceGetInterfaceType, int32_t, (AMDeviceRef))                                             \
    X(AMDeviceConnect, int32_t, (AMDeviceRef))                                                      \
    X(AMDeviceDisconnect, int32_t, (AMDeviceRef))                                                   \
    X(AMDeviceIsPaired, int32_t, (AMDeviceRef))                                                     \
    X(AMDeviceValidatePairing, int32_t, (AMDeviceRef))                                              \
    X(AMDeviceStartSession, int32_t, (AMDeviceRef))                                                 \
    X(AMDeviceStopSession, int32_t, (AMDeviceRef))                                                  \
    X(AMDeviceGetConnectionID, uint32_t, (AMDeviceRef))                                             \
    X(AMRestoreModeDeviceCreate, void*, (uint32_t, uint32_t, uint32_t))                             \
    X(AFCDirectoryOpen, int32_t, (AFCConnectionRef, const char*, AFCDirectoryRef*))                 \
    X(AFCDirectoryRead, int32_t, (AFCConnectionRef, AFCDirectoryRef, char**))                       \
    X(AFCDirectoryClose, int32_t, (AFCConnectionRef, AFCDirectoryRef))                              \
    X(AFCDirectoryCreate, int32_t, (AFCConnectionRef, const char*))                                 \
    X(CFStringGetLength, CFIndex, (CFStringRef))                                                    \
    X(CFNumberGetByteSize, CFIndex, (CFNumberRef))                                                  \
    X(AMRestoreRegisterForDeviceNotifications, int32_t, (void*, void*, void*, void*, uint32_t, void*)) \
    X(AMDeviceStartService, int32_t, (AMDeviceRef, CFStringRef, AMDServiceConnectionRef*, void*))   \
    X(AFCConnectionOpen, int32_t, (int, uint32_t, AFCConnectionRef*))                               \
    X(AFCConnectionClose, int32_t, (AFCConnectionRef))                                              \
    X(AMDeviceCopyValue, CFTypeRef, (AMDeviceRef, CFStringRef, CFStringRef))                        \
    X(AFCFileInfoOpen, int32_t, (AFCConnectionRef, const char*, AFCKeyValueRef*))                   \
    X(AFCRemovePath, int32_t, (AFCConnectionRef, const char*))                                      \
    X(AFCRenamePath, int32_t, (AFCConnectionRef, const char*, const char*))                         \
    X(AFCFileRefOpen, int32_t, (AFCConnectionRef, const char*, uint64_t, AFCFileRef*))              \
    X(AFCFileRefClose, int32_t, (AFCConnectionRef, AFCFileRef))                                     \
    X(AFCFileRefLock, int32_t, (AFCConnectionRef, AFCFileRef))                                      \
    X(AFCFileRefUnlock, int32_t, (AFCConnectionRef, AFCFileRef))                                    \
    X(AFCFileRefRead, int32_t, (AFCConnectionRef, AFCFileRef, void*, uint32_t*))                    \
    X(AFCFileRefWrite, int32_t, (AFCConnectionRef, AFCFileRef, const void*, uint32_t))              \
    X(AFCFlushData, int32_t, (AFCConnectionRef, AFCFileRef))                                        \
    X(AFCFileRefTell, int32_t, (AFCConnectionRef, AFCFileRef, uint64_t*))                           \
    X(AFCFileRefSeek, int32_t, (AFCConnectionRef, AFCFileRef, int64_t, uint64_t))                   \
    X(AFCFileRefSetFileSize, int32_t, (AFCConnectionRef, AFCFileRef, uint64_t))                     \
    X(AFCDeviceInfoOpen, int32_t, (AFCConnectionRef, AFCKeyValueRef*))                              \
    X(AFCKeyValueRead, int32_t, (AFCKeyValueRef, char**, char**))                                   \
    X(AFCKeyValueClose, int32_t, (AFCKeyValueRef))                                                  \
    X(AMDPostNotification, int32_t, (AMDServiceConnectionRef, CFStringRef, CFDictionaryRef))        \
    X(AMDShutdownNotificationProxy, int32_t, (AMDServiceConnectionRef))                             \
    X(__CFStringMakeConstantString, CFStringRef, (const char*))                                     \
    X(CFDictionaryAddValue, void, (CFMutableDictionaryRef, const void*, const void*))               \
    X(CFArrayAppendValue, void, (CFMutableArrayRef, const void*))                                   \
    X(CFStringCreateWithCString, CFStringRef, (CFAllocatorRef, const char*, uint32_t))              \
    X(CFDictionaryCreateMutable, CFMutableDictionaryRef,                                            \
      (CFAllocatorRef, CFIndex, const void*, const void*))                                          \
    X(CFStringGetCString, Boolean, (CFStringRef, char*, CFIndex, uint32_t))                         \
    X(CFDictionaryApplyFunction, void, (CFDictionaryRef, CFDictionaryApplierFunction, void*))       \
    X(AMDListenForNotifications, int32_t, (AMDServiceConnectionRef, void*, void*))                  \
    X(AMDObserveNotification, int32_t, (AMDServiceConnectionRef, CFStringRef))                      \
    X(AMDeviceLookupApplications, int32_t, (AMDeviceRef, CFDictionaryRef, CFDictionaryRef*))        \
    X(CFRelease, void, (CFTypeRef))                                                                 \
    X(CFRunLoopRun, void, ())                                                                       \
    X(CFDictionaryContainsKey, Boolean, (CFDictionaryRef, const void*))                             \
    X(CFDictionaryContainsValue, Boolean, (CFDictionaryRef, const void*))                           \
    X(CFDictionaryGetValue, const void*, (CFDictionaryRef, const void*))                            \
    X(CFDictionaryCreate, CFDictionaryRef,                                                          \
      (CFAllocatorRef, const void**, const void**, CFIndex, const void*, const void*))              \
    X(AMDeviceSecureUninstallApplication, int32_t,                                                  \
      (AMDServiceConnectionRef, AMDeviceRef, CFStringRef, CFDictionaryRef, void*, void*))           \
    X(CFURLCreateWithFileSystemPath, CFURLRef, (CFAllocatorRef, CFStringRef, CFIndex, Boolean))     \
    X(AMDeviceSecureTransferPath, int32_t,                                                          \
      (int32_t, AMDeviceRef, CFURLRef, CFDictionaryRef, void*, void*))                              \
    X(AFCCopyErrorString, CFStringRef, (int32_t))                                                   \
    X(AMDCopyErrorText, CFStringRef, (int32_t))                                                     \
    X(CFNumberGetValue, Boolean, (CFNumberRef, CFIndex, void*))                                     \
    X(CFGetTypeID, CFTypeID, (CFTypeRef))                                                           \
    X(CFNumberGetType, CFIndex, (CFNumberRef))                                                      \
    X(CFBooleanGetValue, Boolean, (CFBooleanRef))                                                   \
    X(AMDServiceConnectionSend, ssize_t, (AMDServiceConnectionRef, const void*, size_t))            \
    X(AMDServiceConnectionReceive, ssize_t, (AMDServiceConnectionRef, void*, size_t))               \
    X(AMDeviceSecureStartService, int32_t,                                                          \
      (AMDeviceRef, CFStringRef, CFDictionaryRef, AMDServiceConnectionRef*))                        \
    X(AMDServiceConnectionGetSocket, int, (AMDServiceConnectionRef))                                \
    X(CFDataCreate, CFDataRef, (CFAllocatorRef, const uint8_t*, CFIndex))                           \
    X(CFPropertyListCreateWithData, CFPropertyListRef,                                              \
      (CFAllocatorRef, CFDataRef, uint64_t, CFIndex*, void**))                                      \
    X(CFPropertyListCreateXMLData, CFDataRef, (CFAllocatorRef, CFPropertyListRef))                  \
    X(CFDataGetLength, CFIndex, (CFDataRef))                                                        \
    X(CFDataGetBytePtr, const uint8_t*, (CFDataRef))                                                \
    X(AMDServiceConnectionInvalidate, void, (AMDServiceConnectionRef))                              \
    X(AMDServiceConnectionGetSecureIOContext, void*, (AMDServiceConnectionRef))                     \
    X(AFCConnectionSetSecureContext, int32_t, (AFCConnectionRef, void*))                            \
    X(AMDeviceSetValue, int32_t, (AMDeviceRef, CFStringRef, CFStringRef, CFTypeRef))                \
    X(CFArrayGetCount, CFIndex, (CFArrayRef))                                                       \
    X(CFArrayGetValueAtIndex, const void*, (CFArrayRef, CFIndex))                                   \
    X(CFArrayRemoveValueAtIndex, void, (CFMutableArrayRef, CFIndex))                                \
    X(CFArrayCreateMutable, CFMutableArrayRef, (CFAllocatorRef, CFIndex, const void*))              \
    X(CFWriteStreamCreateWithAllocatedBuffers, CFWriteStreamRef, (CFAllocatorRef, CFAllocatorRef))  \
    X(CFWriteStreamOpen, Boolean, (CFWriteStreamRef))                                               \
    X(CFPropertyListCreateFromXMLData, CFPropertyListRef,                                           \
      (CFAllocatorRef, CFDataRef, uint64_t, CFStringRef*))                                          \
    X(CFPropertyListWriteToStream, CFIndex, (CFPropertyListRef, CFWriteStreamRef, CFIndex, CFStringRef*)) \
    X(CFWriteStreamCopyProperty, CFTypeRef, (CFWriteStreamRef, CFStringRef))                        \
    X(CFWriteStreamClose, void, (CFWriteStreamRef))                                                 \
    X(AMDevicePair, int32_t, (AMDeviceRef))                                                         \
    X(CFDictionaryGetCount, CFIndex, (CFDictionaryRef))                                             \
    X(CFDictionaryGetKeysAndValues, void, (CFDictionaryRef, const void**, const void**))            \
    X(CFAbsoluteTimeGetCurrent, CFAbsoluteTime, ())                                                 \
    X(CFDateCreate, CFDateRef, (CFAllocatorRef, CFAbsoluteTime))                                    \
    X(CFStringCreateCopy, CFStringRef, (CFAllocatorRef, CFStringRef))                               \
    X(CFDataCreateCopy, CFDataRef, (CFAllocatorRef, CFDataRef))                                     \
    X(CFDateGetAbsoluteTime, CFAbsoluteTime, (CFDateRef))

// One function type per operation: AMDeviceConnect_t and so on.
#define ZEB_DECLARE_FUNCTION_TYPE(name, result, params) typedef result name##_t params;
ZEB_MOBILE_DEVICE_FUNCTIONS(ZEB_DECLARE_FUNCTION_TYPE)
#undef ZEB_DECLARE_FUNCTION_TYPE
