#include "core/backup_restore.h"

#include "core/backup_apply.h"
#include "core/backup_device_files.h"
#include "core/backup_documents.h"
#include "core/backup_keybag.h"
#include "core/backup_manifest_db.h"
#include "core/backup_profile.h"
#include "core/backup_receive.h"

#include <chrono>
#include <map>
#include <thread>

namespace zsim {
namespace {

constexpr size_t kPageFiles = 64;
constexpr uint64_t kPageBytes = 64ull << 20;
constexpr uint64_t kKeepDocuments = 256ull << 20;
constexpr uint64_t kErrorRestore = 104;
constexpr uint64_t kErrorNoSpace = 105;
constexpr uint64_t kErrorBackupUnreadable = 205;
constexpr uint64_t kErrorPassword = 207;
const char* const kPasswordText = "Invalid password (MBErrorDomain/207)";

// An encrypted backup's password: checked against its key bag, or when it
// has none (the profile turned encryption on, no password was known) any
// password will do.
bool passwordAccepted(plist_t manifest, const std::optional<std::string>& password) {
    if (!password || password->empty()) return false;
    auto bag = dictData(manifest, "BackupKeyBag");
    if (!bag) return true;
    auto keyBag = decodeKeyBag(std::string(bag->begin(), bag->end()));
    return keyBag && keyBagAccepts(*keyBag, *password);
}

class RestoreRun {
public:
    RestoreRun(BackupHost& host, plist_t request)
        : host_(host),
          ctx_(host.context()),
          profile_(backupProfile(ctx_.profile)),
          staging_(ctx_) {
        plist_t options = dictDict(request, "Options");
        source_ = dictString(request, "SourceIdentifier")
                      .value_or(dictString(request, "TargetIdentifier").value_or(ctx_.udid));
        password_ = dictString(options, "Password");
        options_ = restoreOptions(options);
    }

    void run() {
        auto documents = host_.download({source_ + "/Status.plist", source_ + "/Manifest.plist", source_ + "/Manifest.db"},
                                        0.0, kKeepDocuments);
        if (!documents) return;
        std::map<std::string, const DownloadedFile*> byName;
        for (const auto& file : *documents)
            if (file.ok) byName[file.path.substr(file.path.rfind('/') + 1)] = &file;

        PlistPtr status = parsed(byName, "Status.plist");
        manifest_ = parsed(byName, "Manifest.plist");
        if (!isFinishedBackup(status.get()) || !manifest_)
            return conclude(kErrorBackupUnreadable, "Error reading backup properties (MBErrorDomain/205)");
        if (dictBool(manifest_.get(), "IsEncrypted").value_or(false) && !passwordAccepted(manifest_.get(), password_))
            return conclude(kErrorPassword, kPasswordText);
        std::optional<std::vector<ManifestRecord>> records;
        if (byName.count("Manifest.db")) records = readManifestDatabase(byName["Manifest.db"]->bytes);
        if (!records) return conclude(kErrorBackupUnreadable, "Error reading backup database (MBErrorDomain/205)");

        plan(*records);
        std::vector<std::pair<std::string, uint64_t>> media;
        for (const auto& w : wanted_)
            if (w.mediaPath) media.emplace_back(*w.mediaPath, w.size.value_or(0));
        if (!restoreFits(ctx_, media))
            return conclude(kErrorNoSpace, "Not enough free space on the device to restore (MBErrorDomain/105)");

        // The profile's faults: checked before each page and once all came,
        // by the bytes that have come.
        RestoreReceiver receiver(staging_, dropAt());
        std::vector<const WantedFile*> page;
        uint64_t pageBytes = 0;
        for (const WantedFile& w : wanted_) {
            if (!page.empty() && (page.size() == kPageFiles || pageBytes + w.size.value_or(0) > kPageBytes)) {
                if (failNow(receiver)) return fail();
                if (!fetch(page, receiver)) return;
                page.clear();
                pageBytes = 0;
            }
            page.push_back(&w);
            pageBytes += w.size.value_or(0);
        }
        if (failNow(receiver)) return fail();
        if (!page.empty() && !fetch(page, receiver)) return;
        if (failNow(receiver)) return fail();
        if (receiver.missing() > 0)
            return conclude(kErrorRestore, std::to_string(receiver.missing()) +
                                               " files could not be restored (MBErrorDomain/104)");
        applyRestore(ctx_, staging_, manifest_.get(), options_);
        conclude(0, "");
    }

private:
    static PlistPtr parsed(std::map<std::string, const DownloadedFile*>& byName, const char* name) {
        auto it = byName.find(name);
        return it == byName.end() ? nullptr : parsePlist(it->second->bytes.data(), it->second->bytes.size());
    }

    // Which files to ask for and where each goes.
    void plan(const std::vector<ManifestRecord>& records) {
        for (const auto& r : records) {
            const auto mediaPath = mediaPathOf(r.domain, r.relativePath);
            if (r.flags == kManifestFolder && mediaPath && !mediaPath->empty()) staging_.folders.push_back(*mediaPath);
            if (r.flags != kManifestFile || r.fileID.size() <= 2) continue;
            WantedFile w{source_ + "/" + r.fileID.substr(0, 2) + "/" + r.fileID, r.size, std::nullopt, nullptr};
            if (mediaPath && !mediaPath->empty()) {
                w.mediaPath = mediaPath;
                staging_.listed.insert(*mediaPath);
            }
            w.store = syncClassOf(r.domain, r.relativePath);
            total_ += w.size.value_or(0);
            wanted_.push_back(std::move(w));
        }
    }

    std::optional<uint64_t> dropAt() const {
        if (!profile_.dropAtPercent) return std::nullopt;
        return static_cast<uint64_t>(*profile_.dropAtPercent / 100.0 * double(total_));
    }

    bool failNow(const RestoreReceiver& receiver) const {
        return profile_.failAtPercent &&
               (total_ ? 100.0 * double(receiver.received()) / double(total_) : 100.0) >= *profile_.failAtPercent;
    }

    void fail() { conclude(kErrorNoSpace, "Insufficient free disk space on device to restore (MBErrorDomain/105)"); }

    bool fetch(const std::vector<const WantedFile*>& page, RestoreReceiver& receiver) {
        if (profile_.pageDelayMilliseconds)
            std::this_thread::sleep_for(std::chrono::milliseconds(profile_.pageDelayMilliseconds));
        std::vector<std::string> paths;
        for (const WantedFile* w : page) {
            paths.push_back(w->hostPath);
            asked_ += w->size.value_or(0);
        }
        receiver.expect(page);
        if (!host_.download(paths, total_ ? 100.0 * double(asked_) / double(total_) : 100.0, receiver)) return false;
        receiver.endPage();
        return true;
    }

    void conclude(uint64_t code, const std::string& description) {
        if (host_.respond(code, description) && host_.disconnect()) host_.awaitHostLeaving();
    }

    BackupHost& host_;
    const ServiceContext& ctx_;
    const BackupProfile profile_;
    RestoreStaging staging_;
    std::string source_;
    std::optional<std::string> password_;
    RestoreOptions options_;
    PlistPtr manifest_;
    std::vector<WantedFile> wanted_;
    uint64_t total_ = 0;
    uint64_t asked_ = 0;
};

}  // namespace

void runRestore(BackupHost& host, plist_t request) { RestoreRun(host, request).run(); }

}  // namespace zsim
