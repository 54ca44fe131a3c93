#include "core/backup_create.h"

#include "core/backup_content.h"
#include "core/backup_device_files.h"
#include "core/backup_documents.h"
#include "core/backup_file_data.h"
#include "core/backup_manifest_db.h"
#include "core/backup_profile.h"
#include "core/backup_settings.h"
#include "core/backup_upload.h"

#include <chrono>
#include <memory>
#include <set>
#include <thread>

namespace zsim {
namespace {

constexpr size_t kPageFiles = 64;
constexpr uint64_t kPageBytes = 64ull << 20;
constexpr size_t kMovesPerMessage = 128;
constexpr uint64_t kErrorUpload = 104;
constexpr uint64_t kErrorNoSpace = 105;
const char* const kNoSpaceText = "Insufficient free disk space on drive to back up (MBErrorDomain/105)";

struct Upload {
    std::string deviceName;
    std::string hostPath;
    std::string finalPath;
    const BackupItem* item;
};

enum class Step { Go, Failed, HostError, Dropped, Lost };

std::shared_ptr<BackupItem> document(std::string bytes) {
    auto item = std::make_shared<BackupItem>();
    item->size = bytes.size();
    item->bytes = std::make_shared<const std::string>(std::move(bytes));
    return item;
}

class BackupRun {
public:
    BackupRun(BackupHost& host, plist_t request)
        : host_(host),
          ctx_(host.context()),
          profile_(backupProfile(ctx_.profile)),
          udid_(dictString(request, "TargetIdentifier").value_or(ctx_.udid)),
          forceFull_(dictBool(dictDict(request, "Options"), "ForceFullBackup").value_or(false)),
          uploader_(host.stream()) {}

    void run() {
        Step step = prepare();
        if (step == Step::Go) step = uploadAll();
        if (step == Step::Go) step = moveIntoPlace();
        if (step == Step::Go) step = finishStatus();
        switch (step) {
            case Step::Go:
                conclude(0, "");
                break;
            case Step::Failed:
                conclude(kErrorNoSpace, kNoSpaceText);
                break;
            case Step::HostError:
                conclude(kErrorUpload, "Multiple errors uploading files (MBErrorDomain/104)");
                break;
            case Step::Dropped:
            case Step::Lost:
                break;
        }
    }

private:
    double percent(uint64_t at) const { return total_ ? 100.0 * double(at) / double(total_) : 100.0; }
    bool failNow() const { return profile_.failAtPercent && percent(done_) >= *profile_.failAtPercent; }

    void conclude(uint64_t code, const std::string& description) {
        if (host_.respond(code, description) && host_.disconnect()) host_.awaitHostLeaving();
    }

    Step prepare() {
        // The last backup tells whether this one can be incremental.
        auto previous = host_.download({udid_ + "/Status.plist", udid_ + "/Manifest.plist"}, 0.0, 1 << 20);
        if (!previous) return Step::Lost;
        bool hadBackup = false;
        for (const auto& file : *previous) {
            if (file.ok && file.path == udid_ + "/Status.plist") {
                PlistPtr status = parsePlist(file.bytes.data(), file.bytes.size());
                hadBackup = isFinishedBackup(status.get());
            }
        }
        BackupSettings& settings = backupSettingsFor(ctx_.stateDir, ctx_.udid, ctx_.profile);
        const bool encrypted = settings.willEncrypt();
        std::optional<std::string> keyBag;
        if (auto digest = settings.passwordDigest()) keyBag = encodeKeyBag(*digest);
        // The device's state as it is now, beside the generated content.
        content_ = withDeviceItems(backupContent(profile_.content), deviceBackupItems(ctx_));
        manifestDb_ = document(buildManifestDatabase(content_));
        manifestPlist_ = document(toBinary(makeManifestPlist(ctx_, encrypted, keyBag).get()));
        status_ = document(toBinary(makeStatusPlist(forceFull_ || !hadBackup).get()));
        planUploads();
        total_ = content_.fileBytes + manifestDb_->size + manifestPlist_->size + status_->size;

        auto space = host_.freeDiskSpace();
        if (!space) return Step::Lost;
        if (*space && **space < total_) return Step::Failed;
        return makeFolders();
    }

    void planUploads() {
        const std::string snapshot = udid_ + "/Snapshot/";
        for (const BackupItem& item : content_.items) {
            if (item.directory) continue;
            const std::string path = item.fileID.substr(0, 2) + "/" + item.fileID;
            uploads_.push_back({item.domain + "-" + item.relativePath, snapshot + path, udid_ + "/" + path, &item});
        }
        uploads_.push_back({"Manifest.db", snapshot + "Manifest.db", udid_ + "/Manifest.db", manifestDb_.get()});
        uploads_.push_back({"Manifest.plist", snapshot + "Manifest.plist", udid_ + "/Manifest.plist", manifestPlist_.get()});
    }

    Step makeFolders() {
        std::set<std::string> prefixes;
        for (const BackupItem& item : content_.items)
            if (!item.directory) prefixes.insert(item.fileID.substr(0, 2));
        std::vector<std::string> folders{udid_ + "/Snapshot"};
        for (const auto& p : prefixes) {
            folders.push_back(udid_ + "/Snapshot/" + p);
            folders.push_back(udid_ + "/" + p);
        }
        for (const auto& folder : folders) {
            auto status = host_.createDirectory(folder, 0.0);
            if (!status) return Step::Lost;
            if (status->code != 0) return Step::HostError;
        }
        return Step::Go;
    }

    Step uploadAll() {
        std::vector<const Upload*> page;
        uint64_t pageBytes = 0;
        for (const Upload& upload : uploads_) {
            if (!page.empty() && (page.size() == kPageFiles || pageBytes + upload.item->size > kPageBytes)) {
                if (Step step = sendPage(page); step != Step::Go) return step;
                page.clear();
                pageBytes = 0;
            }
            page.push_back(&upload);
            pageBytes += upload.item->size;
        }
        return page.empty() ? Step::Go : sendPage(page);
    }

    Step sendPage(const std::vector<const Upload*>& page) {
        if (profile_.pageDelayMilliseconds)
            std::this_thread::sleep_for(std::chrono::milliseconds(profile_.pageDelayMilliseconds));
        if (failNow()) return Step::Failed;
        uint64_t bytes = 0;
        for (const Upload* u : page) bytes += u->item->size;
        if (!host_.send({plist_new_string("DLMessageUploadFiles"), plist_new_dict(), plist_new_real(percent(done_ + bytes)),
                         plist_new_uint(bytes)}))
            return Step::Lost;
        Step result = Step::Go;
        for (const Upload* u : page) {
            // A failure ends the stream cleanly first, so that the host
            // reads the error response as a message.
            if (failNow()) {
                result = Step::Failed;
                break;
            }
            if (Step step = sendFile(*u); step != Step::Go) return step;
        }
        if (!uploader_.finish()) return Step::Lost;
        auto status = host_.status();
        if (!status) return Step::Lost;
        if (status->code != 0 && result == Step::Go) result = Step::HostError;
        return result;
    }

    Step sendFile(const Upload& upload) {
        if (!uploader_.beginFile(upload.deviceName, upload.hostPath)) return Step::Lost;
        BackupFileReader reader(*upload.item);
        while (reader.remaining() > 0) {
            if (!host_.waitIfStalled()) return Step::Lost;
            const size_t n = static_cast<size_t>(std::min<uint64_t>(kUploadBlock, reader.remaining()));
            char* frame = uploader_.dataFrame(n);
            if (!frame) return Step::Lost;
            reader.read(frame, n);
            // Pulled out in the middle of a block: hosts notice a short
            // read at once, where a cut between files could leave them
            // waiting for a name that never comes.
            if (profile_.dropAtPercent && percent(done_ + n) >= *profile_.dropAtPercent) {
                uploader_.cutLastFrame(n / 2);
                return Step::Dropped;
            }
            done_ += n;
        }
        return uploader_.endFile() ? Step::Go : Step::Lost;
    }

    Step moveIntoPlace() {
        std::vector<std::pair<std::string, std::string>> moves;
        auto flush = [&]() -> Step {
            if (moves.empty()) return Step::Go;
            auto status = host_.moveItems(moves, percent(done_));
            moves.clear();
            if (!status) return Step::Lost;
            return status->code == 0 ? Step::Go : Step::HostError;
        };
        for (const Upload& upload : uploads_) {
            moves.emplace_back(upload.hostPath, upload.finalPath);
            if (moves.size() == kMovesPerMessage)
                if (Step step = flush(); step != Step::Go) return step;
        }
        if (Step step = flush(); step != Step::Go) return step;
        auto removed = host_.removeItems({udid_ + "/Snapshot"}, percent(done_));
        if (!removed) return Step::Lost;
        return removed->code == 0 ? Step::Go : Step::HostError;
    }

    Step finishStatus() {
        Upload status{"Status.plist", udid_ + "/Status.plist", udid_ + "/Status.plist", status_.get()};
        if (Step step = sendPage({&status}); step != Step::Go) return step;
        return failNow() ? Step::Failed : Step::Go;
    }

    BackupHost& host_;
    const ServiceContext& ctx_;
    const BackupProfile profile_;
    BackupContent content_;
    const std::string udid_;
    const bool forceFull_;
    Uploader uploader_;
    std::shared_ptr<BackupItem> manifestDb_, manifestPlist_, status_;
    std::vector<Upload> uploads_;
    uint64_t total_ = 0;
    uint64_t done_ = 0;
};

}  // namespace

void runBackup(BackupHost& host, plist_t request) { BackupRun(host, request).run(); }

}  // namespace zsim
