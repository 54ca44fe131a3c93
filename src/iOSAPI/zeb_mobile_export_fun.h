// CMobileExportFun: the one record through which the worker calls every
// device and CF operation. The provider library is found and bound at run
// time; nothing in the worker links it.
#pragma once

#include <atomic>
#include <mutex>

#include <cstdint>
#include <string>
#include <vector>

#include "zeb_mobile_device_api.h"

class CMobileExportFun {
public:
    static CMobileExportFun& GetInstance();

    // Binds every operation. True once all names resolved; safe to call
    // again (a bound record answers true at once, a failed bind starts over).
    bool Init();

    // The file that Init would load, by the search order: the path in
    // ZEBRELO_DEVICE_PROVIDER when set (and then only that), the folder of
    // the executable, ../lib/zebrelo/ beside it, then the bare name for the
    // dynamic linker's own search.
    static std::vector<std::string> ProviderCandidates();

    // Operation slots, in table order. The two data slots hold the address
    // of the provider's exported constant: read the value through them.
    AMDeviceNotificationSubscribe_t* AMDeviceNotificationSubscribe = nullptr;
    AMDeviceNotificationUnsubscribe_t* AMDeviceNotificationUnsubscribe = nullptr;
    AMDeviceGetInterfaceType_t* AMDeviceGetInterfaceType = nullptr;
    AMDeviceConnect_t* AMDeviceConnect = nullptr;
    AMDeviceDisconnect_t* AMDeviceDisconnect = nullptr;
    AMDeviceIsPaired_t* AMDeviceIsPaired = nullptr;
    AMDeviceValidatePairing_t* AMDeviceValidatePairing = nullptr;
    AMDeviceStartSession_t* AMDeviceStartSession = nullptr;
    AMDeviceStopSession_t* AMDeviceStopSession = nullptr;
    AMDeviceGetConnectionID_t* AMDeviceGetConnectionID = nullptr;
    AMRestoreModeDeviceCreate_t* AMRestoreModeDeviceCreate = nullptr;
    AFCDirectoryOpen_t* AFCDirectoryOpen = nullptr;
    AFCDirectoryRead_t* AFCDirectoryRead = nullptr;
    AFCDirectoryClose_t* AFCDirectoryClose = nullptr;
    AFCDirectoryCreate_t* AFCDirectoryCreate = nullptr;
    CFStringGetLength_t* CFStringGetLength = nullptr;
    CFNumberGetByteSize_t* CFNumberGetByteSize = nullptr;
    AMRestoreRegisterForDeviceNotifications_t* AMRestoreRegisterForDeviceNotifications = nullptr;
    AMDeviceStartService_t* AMDeviceStartService = nullptr;
    AFCConnectionOpen_t* AFCConnectionOpen = nullptr;
    AFCConnectionClose_t* AFCConnectionClose = nullptr;
    AMDeviceCopyValue_t* AMDeviceCopyValue = nullptr;
    AFCFileInfoOpen_t* AFCFileInfoOpenFirst = nullptr;  // bound, never called
    AFCRemovePath_t* AFCRemovePath = nullptr;
    AFCRenamePath_t* AFCRenamePath = nullptr;
    AFCFileRefOpen_t* AFCFileRefOpen = nullptr;
    AFCFileRefClose_t* AFCFileRefClose = nullptr;
    AFCFileRefLock_t* AFCFileRefLock = nullptr;
    AFCFileRefUnlock_t* AFCFileRefUnlock = nullptr;
    AFCFileRefRead_t* AFCFileRefRead = nullptr;
    AFCFileRefWrite_t* AFCFileRefWrite = nullptr;
    AFCFlushData_t* AFCFlushData = nullptr;
    AFCFileRefTell_t* AFCFileRefTell = nullptr;
    AFCFileRefSeek_t* AFCFileRefSeek = nullptr;
    AFCFileRefSetFileSize_t* AFCFileRefSetFileSize = nullptr;
    AFCDeviceInfoOpen_t* AFCDeviceInfoOpen = nullptr;
    AFCKeyValueRead_t* AFCKeyValueRead = nullptr;
    AFCKeyValueClose_t* AFCKeyValueClose = nullptr;
    AMDPostNotification_t* AMDPostNotification = nullptr;
    AMDShutdownNotificationProxy_t* AMDShutdownNotificationProxy = nullptr;
    __CFStringMakeConstantString_t* __CFStringMakeConstantString = nullptr;
    CFDictionaryAddValue_t* CFDictionaryAddValue = nullptr;
    CFArrayAppendValue_t* CFArrayAppendValue = nullptr;
    CFStringCreateWithCString_t* CFStringCreateWithCString = nullptr;
    CFDictionaryCreateMutable_t* CFDictionaryCreateMutable = nullptr;
    CFStringGetCString_t* CFStringGetCString = nullptr;
    CFDictionaryApplyFunction_t* CFDictionaryApplyFunction = nullptr;
    AMDListenForNotifications_t* AMDListenForNotifications = nullptr;
    AMDObserveNotification_t* AMDObserveNotification = nullptr;
    AMDeviceLookupApplications_t* AMDeviceLookupApplications = nullptr;
    CFRelease_t* CFRelease = nullptr;
    CFRunLoopRun_t* CFRunLoopRun = nullptr;
    CFDictionaryContainsKey_t* CFDictionaryContainsKey = nullptr;
    CFDictionaryContainsValue_t* CFDictionaryContainsValue = nullptr;
    CFDictionaryGetValue_t* CFDictionaryGetValue = nullptr;
    CFDictionaryCreate_t* CFDictionaryCreate = nullptr;
    AMDeviceSecureUninstallApplication_t* AMDeviceSecureUninstallApplication = nullptr;
    CFURLCreateWithFileSystemPath_t* CFURLCreateWithFileSystemPath = nullptr;
    AMDeviceSecureTransferPath_t* AMDeviceSecureTransferPath = nullptr;
    AFCCopyErrorString_t* AFCCopyErrorString = nullptr;
    AMDCopyErrorText_t* AMDCopyErrorText = nullptr;
    CFNumberGetValue_t* CFNumberGetValue = nullptr;
    CFGetTypeID_t* CFGetTypeID = nullptr;
    CFNumberGetType_t* CFNumberGetType = nullptr;
    CFBooleanGetValue_t* CFBooleanGetValue = nullptr;
    AMDServiceConnectionSend_t* AMDServiceConnectionSend = nullptr;
    AMDServiceConnectionReceive_t* AMDServiceConnectionReceive = nullptr;
    AMDeviceSecureStartService_t* AMDeviceSecureStartService = nullptr;
    AMDServiceConnectionGetSocket_t* AMDServiceConnectionGetSocket = nullptr;
    CFDataCreate_t* CFDataCreate = nullptr;
    CFPropertyListCreateWithData_t* CFPropertyListCreateWithData = nullptr;
    CFPropertyListCreateXMLData_t* CFPropertyListCreateXMLData = nullptr;
    CFDataGetLength_t* CFDataGetLength = nullptr;
    CFDataGetBytePtr_t* CFDataGetBytePtr = nullptr;
    AMDServiceConnectionInvalidate_t* AMDServiceConnectionInvalidate = nullptr;
    AMDServiceConnectionGetSecureIOContext_t* AMDServiceConnectionGetSecureIOContext = nullptr;
    AFCConnectionSetSecureContext_t* AFCConnectionSetSecureContext = nullptr;
    AMDeviceSetValue_t* AMDeviceSetValue = nullptr;
    CFArrayGetCount_t* CFArrayGetCount = nullptr;
    CFArrayGetValueAtIndex_t* CFArrayGetValueAtIndex = nullptr;
    CFArrayRemoveValueAtIndex_t* CFArrayRemoveValueAtIndex = nullptr;
    CFArrayCreateMutable_t* CFArrayCreateMutable = nullptr;
    CFWriteStreamCreateWithAllocatedBuffers_t* CFWriteStreamCreateWithAllocatedBuffers = nullptr;
    CFWriteStreamOpen_t* CFWriteStreamOpen = nullptr;
    CFPropertyListCreateFromXMLData_t* CFPropertyListCreateFromXMLData = nullptr;
    CFPropertyListWriteToStream_t* CFPropertyListWriteToStream = nullptr;
    const CFStringRef* kCFStreamPropertyDataWritten = nullptr;  // address of exported data
    CFWriteStreamCopyProperty_t* CFWriteStreamCopyProperty = nullptr;
    CFWriteStreamClose_t* CFWriteStreamClose = nullptr;
    AMDevicePair_t* AMDevicePair = nullptr;
    AFCFileInfoOpen_t* AFCFileInfoOpen = nullptr;  // the slot that is called
    CFDictionaryGetCount_t* CFDictionaryGetCount = nullptr;
    CFDictionaryGetKeysAndValues_t* CFDictionaryGetKeysAndValues = nullptr;
    const CFBooleanRef* kCFBooleanTrue = nullptr;  // address of exported data
    CFAbsoluteTimeGetCurrent_t* CFAbsoluteTimeGetCurrent = nullptr;
    CFDateCreate_t* CFDateCreate = nullptr;
    CFStringCreateCopy_t* CFStringCreateCopy = nullptr;
    CFDataCreateCopy_t* CFDataCreateCopy = nullptr;
    CFDateGetAbsoluteTime_t* CFDateGetAbsoluteTime = nullptr;

    // 0 until Init has bound every slot, then 1. Set last, so a thread that
    // sees 1 sees every slot bound.
    std::atomic<int32_t> initialised{0};
    std::mutex binding;  // one Init at a time
    // The provider's library handle; never closed.
    void* mobileDeviceModule = nullptr;

    CMobileExportFun(const CMobileExportFun&) = delete;
    CMobileExportFun& operator=(const CMobileExportFun&) = delete;

private:
    CMobileExportFun() = default;
    bool BindAll(void* module);
};

// Library name of the provider and of the host library it needs.
inline constexpr const char* kZebProviderFileName = "libzebrelo-mobiledevice.so";
inline constexpr const char* kZebHostLibraryName = "libusbmuxd-2.0.so.6";
