// Install and Upgrade of a package the host staged over AFC. The device
// reads the package, reports each stage as it goes, and stops at the stage
// where a broken package shows its fault.
#include "core/app_catalog.h"
#include "core/app_package.h"
#include "installation_proxy_session.h"

namespace zsim::instproxy {
namespace {

struct Stage {
    const char* status;
    unsigned percent;
};

constexpr Stage kBeforeExtraction[] = {
    {"TakingInstallLock", 0}, {"CreatingStagingDirectory", 5}, {"StagingPackage", 10}, {"ExtractingPackage", 15}};
constexpr Stage kAfterInspection[] = {
    {"PreflightingApplication", 30}, {"VerifyingApplication", 40}, {"CreatingContainer", 50},
    {"InstallingApplication", 60},   {"PostflightingApplication", 70}, {"SandboxingApplication", 80},
    {"GeneratingApplicationMap", 90}};

}  // namespace

bool install(Session& session, plist_t request, bool upgrade) {
    (void)upgrade;  // a device installs over an older version either way
    auto packagePath = dictString(request, "PackagePath");
    if (!packagePath || packagePath->empty())
        return session.error("MissingPackagePath", "The request has no PackagePath");
    plist_t options = dictDict(request, "ClientOptions");

    const auto file = session.packageFile(*packagePath);
    PackageContents package = file.empty() ? PackageContents{} : readPackage(file);
    if (file.empty()) {
        package.fault = PackageFault::Unreadable;
        package.detail = "the path leaves the media partition";
    }

    for (const Stage& stage : kBeforeExtraction)
        if (!session.progress(stage.status, stage.percent)) return false;
    if (package.fault == PackageFault::Unreadable || package.fault == PackageFault::NotZip)
        return session.error("PackageExtractionFailed",
                             "Failed to extract package at " + *packagePath + ": " + package.detail);
    if (!session.progress("InspectingPackage", 20)) return false;
    if (package.fault == PackageFault::NoVersion)
        return session.error("MissingBundleVersion", "Failed to inspect package: " + package.detail);
    if (package.fault != PackageFault::None)
        return session.error("PackageInspectionFailed", "Failed to inspect package: " + package.detail);

    const std::string id = dictString(package.info.get(), "CFBundleIdentifier").value_or("");
    PlistPtr previous = session.apps().find(id);
    if (previous && dictString(previous.get(), "ApplicationType") == std::string("System"))
        return session.error("APIInternalError", "A system application cannot be replaced: " + id);
    PlistPtr app = appFromPackage(package, options, previous.get(), session.context().profile);

    for (const Stage& stage : kAfterInspection) {
        if (!session.progress(stage.status, stage.percent)) return false;
        if (std::string(stage.status) == "InstallingApplication") session.apps().install(std::move(app));
    }
    const bool sent = session.complete();
    session.apps().notifications().post("com.apple.mobile.application_installed");
    return sent;
}

}  // namespace zsim::instproxy
