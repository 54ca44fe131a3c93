// Uninstall, Archive, Restore and RemoveArchive. An archive is both a
// record the device remembers (LookupArchives lists it) and a zip on the
// media partition, ApplicationArchives/<id>.zip, which hosts copy off.
#include "core/app_catalog.h"
#include "core/app_package.h"
#include "installation_proxy_session.h"

#include <system_error>

namespace zsim::instproxy {
namespace fs = std::filesystem;

namespace {

fs::path archiveFile(const Session& session, const std::string& id) {
    return session.context().mediaRoot / "ApplicationArchives" / (id + ".zip");
}

// The application identifier of the request, or an error already sent.
std::optional<std::string> identifierOf(Session& session, plist_t request, bool& sent) {
    auto id = dictString(request, "ApplicationIdentifier");
    if (!id || id->empty()) {
        sent = session.error("MissingApplicationIdentifier", "The request has no ApplicationIdentifier");
        return std::nullopt;
    }
    return id;
}

bool isSystemApp(plist_t app) { return dictString(app, "ApplicationType").value_or("") == "System"; }

}  // namespace

bool uninstall(Session& session, plist_t request) {
    bool sent = true;
    auto id = identifierOf(session, request, sent);
    if (!id) return sent;
    PlistPtr app = session.apps().find(*id);
    if (app && isSystemApp(app.get()))
        return session.error("UninstallProhibited", "System application " + *id + " cannot be removed");
    // Removing an app that is not there is no error to a device.
    if (!session.progress("RemovingApplication", 50)) return false;
    const bool removed = app && session.apps().remove(*id);
    if (!session.progress("GeneratingApplicationMap", 90)) return false;
    sent = session.complete();
    if (removed) session.apps().notifications().post("com.apple.mobile.application_uninstalled");
    return sent;
}

bool archive(Session& session, plist_t request) {
    bool sent = true;
    auto id = identifierOf(session, request, sent);
    if (!id) return sent;
    plist_t options = dictDict(request, "ClientOptions");
    const bool keepApp = dictBool(options, "SkipUninstall").value_or(false);
    const std::string type = dictString(options, "ArchiveType").value_or("All");
    PlistPtr app = session.apps().find(*id);
    if (!app || !isUsableIdentifier(*id)) return session.error("LookupFailed", "No application " + *id);
    if (isSystemApp(app.get())) return session.error("UninstallProhibited", "System application " + *id + " cannot be archived");
    if (session.apps().hasArchive(*id)) return session.error("AlreadyArchived", "Application " + *id + " is already archived");

    if (!session.progress("TakingInstallLock", 5) || !session.progress("EmptyingApplication", 15) ||
        !session.progress("ArchivingApplication", 50))
        return false;
    std::string problem;
    std::optional<std::string> metadata;
    if (auto data = dictData(app.get(), "iTunesMetadata")) metadata = std::string(data->begin(), data->end());
    if (type == "DocumentsOnly") metadata.reset();
    if (!writeAppArchive(archiveFile(session, *id), bundleDirOf(app.get()), infoPlistOf(app.get()), metadata, problem))
        return session.error("APIInternalError", "Could not write the archive: " + problem);
    PlistPtr record = adopt(plist_copy(app.get()));
    plist_dict_set_item(record.get(), "ArchiveType", plist_new_string(type.c_str()));
    session.apps().addArchive(*id, std::move(record));
    bool removed = false;
    if (!keepApp) {
        if (!session.progress("RemovingApplication", 70)) return false;
        removed = session.apps().remove(*id);
    }
    if (!session.progress("GeneratingApplicationMap", 90)) return false;
    sent = session.complete();
    if (removed) session.apps().notifications().post("com.apple.mobile.application_uninstalled");
    return sent;
}

bool restore(Session& session, plist_t request) {
    bool sent = true;
    auto id = identifierOf(session, request, sent);
    if (!id) return sent;
    if (!session.apps().hasArchive(*id)) return session.error("LookupFailed", "No archive of " + *id);
    if (!session.progress("TakingInstallLock", 5) || !session.progress("RestoringApplication", 40)) return false;
    // The archive is used up by the restore, on the device as on the disk.
    PlistPtr record = session.apps().takeArchive(*id);
    if (!record) return session.error("LookupFailed", "No archive of " + *id);
    plist_dict_remove_item(record.get(), "ArchiveType");
    session.apps().install(std::move(record));
    std::error_code ec;
    fs::remove(archiveFile(session, *id), ec);
    if (!session.progress("SandboxingApplication", 80) || !session.progress("GeneratingApplicationMap", 90))
        return false;
    sent = session.complete();
    session.apps().notifications().post("com.apple.mobile.application_installed");
    return sent;
}

bool removeArchive(Session& session, plist_t request) {
    bool sent = true;
    auto id = identifierOf(session, request, sent);
    if (!id) return sent;
    if (!session.apps().hasArchive(*id)) return session.error("ArchiveDestructionFailed", "No archive of " + *id);
    if (!session.progress("RemovingArchive", 50)) return false;
    session.apps().takeArchive(*id);
    std::error_code ec;
    fs::remove(archiveFile(session, *id), ec);
    return session.complete();
}

}  // namespace zsim::instproxy
