#include "zeb_mobile_export_fun.h"

#include "zeb_module_search.h"

#include <dlfcn.h>
#include <glog/logging.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace {

pthread_once_t g_once = PTHREAD_ONCE_INIT;
CMobileExportFun* g_instance = nullptr;

std::filesystem::path ExecutableFolder() {
    std::error_code ec;
    auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return {};
    return exe.parent_path();
}

// One name to resolve and the slot it fills. Slots are pointer sized, so the
// address from dlsym is copied in as it is.
struct Binding {
    const char* name;
    void* slot;
};

}  // namespace

CMobileExportFun& CMobileExportFun::GetInstance() {
    // Never destroyed: the slots stay usable by threads that outlive main.
    pthread_once(&g_once, [] { g_instance = new CMobileExportFun(); });
    return *g_instance;
}

std::vector<std::string> CMobileExportFun::ProviderCandidates() {
    if (const char* chosen = std::getenv("ZEBRELO_DEVICE_PROVIDER"); chosen && *chosen) {
        return {chosen};
    }
    return zeb::shippedLibraryCandidates(ExecutableFolder(), kZebProviderFileName);
}

bool CMobileExportFun::Init() {
    if (initialised == 1) return true;
    // Commands that need no device may run before the device monitor has
    // bound the provider: whoever comes first binds, the other waits.
    std::lock_guard<std::mutex> one(binding);
    if (initialised == 1) return true;

    // The host library must be there first, loaded globally, exactly as the
    // provider will need it.
    LOG(INFO) << "strPathHost: " << kZebHostLibraryName;
    if (!dlopen(kZebHostLibraryName, RTLD_NOW | RTLD_GLOBAL)) {
        LOG(ERROR) << "Host Error Code: " << dlerror();
        return false;
    }

    auto candidates = ProviderCandidates();
    std::string chosen;
    for (const auto& candidate : candidates) {
        if (zeb::worthLoading(candidate)) {
            chosen = candidate;
            break;
        }
    }
    if (chosen.empty()) return false;
    LOG(INFO) << "strPathiTunes: " << chosen;

    void* module = dlopen(chosen.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        // Also the case of a provider whose own dependencies are missing.
        LOG(WARNING) << "provider load: " << dlerror();
        return false;
    }
    mobileDeviceModule = module;
    // The provider supplies the CF operations too: one library serves both.
    if (!BindAll(module)) return false;
    initialised = 1;
    return true;
}

bool CMobileExportFun::BindAll(void* module) {
    const Binding order[] = {
        // CF, first group
        {"CFStringCreateWithCString", &CFStringCreateWithCString},
        {"__CFStringMakeConstantString", &__CFStringMakeConstantString},
        {"CFDictionaryApplyFunction", &CFDictionaryApplyFunction},
        {"CFRelease", &CFRelease},
        {"CFRunLoopRun", &CFRunLoopRun},
        {"CFDictionaryContainsKey", &CFDictionaryContainsKey},
        {"CFDictionaryGetValue", &CFDictionaryGetValue},
        {"CFDictionaryContainsValue", &CFDictionaryContainsValue},
        {"CFURLCreateWithFileSystemPath", &CFURLCreateWithFileSystemPath},
        {"CFDictionaryCreate", &CFDictionaryCreate},
        {"CFNumberGetValue", &CFNumberGetValue},
        {"CFGetTypeID", &CFGetTypeID},
        {"CFNumberGetType", &CFNumberGetType},
        {"CFBooleanGetValue", &CFBooleanGetValue},
        {"CFArrayGetValueAtIndex", &CFArrayGetValueAtIndex},
        {"CFArrayRemoveValueAtIndex", &CFArrayRemoveValueAtIndex},
        {"CFArrayCreateMutable", &CFArrayCreateMutable},
        {"CFDataCreate", &CFDataCreate},
        {"CFPropertyListCreateWithData", &CFPropertyListCreateWithData},
        {"CFPropertyListCreateXMLData", &CFPropertyListCreateXMLData},
        {"CFDataGetLength", &CFDataGetLength},
        {"CFDataGetBytePtr", &CFDataGetBytePtr},
        {"CFArrayGetCount", &CFArrayGetCount},
        {"CFStringGetLength", &CFStringGetLength},
        {"CFNumberGetByteSize", &CFNumberGetByteSize},
        {"CFStringGetCString", &CFStringGetCString},
        // device library
        {"AMDeviceNotificationSubscribe", &AMDeviceNotificationSubscribe},
        {"AMDeviceNotificationUnsubscribe", &AMDeviceNotificationUnsubscribe},
        {"AFCCopyErrorString", &AFCCopyErrorString},
        {"AMDeviceGetInterfaceType", &AMDeviceGetInterfaceType},
        {"AMDeviceConnect", &AMDeviceConnect},
        {"AMDeviceDisconnect", &AMDeviceDisconnect},
        {"AMDeviceStopSession", &AMDeviceStopSession},
        {"AMDeviceIsPaired", &AMDeviceIsPaired},
        {"AMDeviceValidatePairing", &AMDeviceValidatePairing},
        {"AMDevicePair", &AMDevicePair},
        {"AMDeviceStartSession", &AMDeviceStartSession},
        {"AMDeviceGetConnectionID", &AMDeviceGetConnectionID},
        {"AMRestoreModeDeviceCreate", &AMRestoreModeDeviceCreate},
        {"AFCDirectoryOpen", &AFCDirectoryOpen},
        {"AFCDirectoryRead", &AFCDirectoryRead},
        {"AFCDirectoryClose", &AFCDirectoryClose},
        {"AFCDirectoryCreate", &AFCDirectoryCreate},
        {"AMDCopyErrorText", &AMDCopyErrorText},
        {"AMRestoreRegisterForDeviceNotifications", &AMRestoreRegisterForDeviceNotifications},
        {"AMDeviceStartService", &AMDeviceStartService},
        {"AFCConnectionOpen", &AFCConnectionOpen},
        {"AFCConnectionClose", &AFCConnectionClose},
        {"AMDeviceCopyValue", &AMDeviceCopyValue},
        {"AFCFileInfoOpen", &AFCFileInfoOpenFirst},
        {"AFCRemovePath", &AFCRemovePath},
        {"AFCRenamePath", &AFCRenamePath},
        {"AFCFileRefOpen", &AFCFileRefOpen},
        {"AFCFileRefClose", &AFCFileRefClose},
        {"AFCFileRefRead", &AFCFileRefRead},
        {"AFCFileRefLock", &AFCFileRefLock},
        {"AFCFileRefUnlock", &AFCFileRefUnlock},
        {"AFCFileRefWrite", &AFCFileRefWrite},
        {"AFCFlushData", &AFCFlushData},
        {"AFCFileRefTell", &AFCFileRefTell},
        {"AFCFileRefSeek", &AFCFileRefSeek},
        {"AFCFileRefSetFileSize", &AFCFileRefSetFileSize},
        {"AFCDeviceInfoOpen", &AFCDeviceInfoOpen},
        {"AFCKeyValueRead", &AFCKeyValueRead},
        {"AFCKeyValueClose", &AFCKeyValueClose},
        {"AMDPostNotification", &AMDPostNotification},
        {"AMDShutdownNotificationProxy", &AMDShutdownNotificationProxy},
        {"AMDListenForNotifications", &AMDListenForNotifications},
        {"AMDObserveNotification", &AMDObserveNotification},
        {"AMDeviceLookupApplications", &AMDeviceLookupApplications},
        {"AMDeviceSecureUninstallApplication", &AMDeviceSecureUninstallApplication},
        {"AMDeviceSecureTransferPath", &AMDeviceSecureTransferPath},
        {"AMDServiceConnectionSend", &AMDServiceConnectionSend},
        {"AMDServiceConnectionReceive", &AMDServiceConnectionReceive},
        {"AMDeviceSecureStartService", &AMDeviceSecureStartService},
        {"AMDServiceConnectionGetSocket", &AMDServiceConnectionGetSocket},
        {"AMDServiceConnectionInvalidate", &AMDServiceConnectionInvalidate},
        {"AMDServiceConnectionGetSecureIOContext", &AMDServiceConnectionGetSecureIOContext},
        {"AFCConnectionSetSecureContext", &AFCConnectionSetSecureContext},
        {"AMDeviceSetValue", &AMDeviceSetValue},
        // CF streams
        {"CFWriteStreamCreateWithAllocatedBuffers", &CFWriteStreamCreateWithAllocatedBuffers},
        {"CFWriteStreamOpen", &CFWriteStreamOpen},
        {"CFPropertyListCreateFromXMLData", &CFPropertyListCreateFromXMLData},
        {"CFPropertyListWriteToStream", &CFPropertyListWriteToStream},
        {"kCFStreamPropertyDataWritten", &kCFStreamPropertyDataWritten},
        {"CFWriteStreamCopyProperty", &CFWriteStreamCopyProperty},
        {"CFWriteStreamClose", &CFWriteStreamClose},
        {"AFCFileInfoOpen", &AFCFileInfoOpen},
        // CF, the rest
        {"CFDictionaryGetCount", &CFDictionaryGetCount},
        {"CFDictionaryGetKeysAndValues", &CFDictionaryGetKeysAndValues},
        {"CFDictionaryCreateMutable", &CFDictionaryCreateMutable},
        {"CFDictionaryAddValue", &CFDictionaryAddValue},
        {"kCFBooleanTrue", &kCFBooleanTrue},
        {"CFArrayAppendValue", &CFArrayAppendValue},
        {"CFAbsoluteTimeGetCurrent", &CFAbsoluteTimeGetCurrent},
        {"CFDateCreate", &CFDateCreate},
        {"CFStringCreateCopy", &CFStringCreateCopy},
        {"CFDataCreateCopy", &CFDataCreateCopy},
        {"CFDateGetAbsoluteTime", &CFDateGetAbsoluteTime},
    };
    static_assert(sizeof(order) / sizeof(order[0]) == 99, "every slot is bound once");

    for (const Binding& b : order) {
        void* address = dlsym(module, b.name);
        if (!address) return false;  // slots bound so far stay filled
        std::memcpy(b.slot, &address, sizeof(address));
    }
    return true;
}
