#include "core/backup_restore.h"

#include "core/backup_documents.h"
#include "core/backup_manifest_db.h"
#include "core/backup_profile.h"

#include <chrono>
#include <map>
#include <thread>

namespace zsim {
namespace {

constexpr size_t kPageFiles = 64;
constexpr uint64_t kPageBytes = 64ull << 20;
constexpr uint64_t kKeepDocuments = 256ull << 20;
constexpr uint64_t kErrorRestore = 104;
constexpr uint64_t kErrorBackupUnreadable = 205;
constexpr uint64_t kErrorPassword = 207;

struct Wanted {
    std::string path;
    std::optional<uint64_t> size;
};

class RestoreRun {
public:
    RestoreRun(BackupHost& host, plist_t request)
        : host_(host), profile_(backupProfile(host.context().profile)) {
        plist_t options = dictDict(request, "Options");
        source_ = dictString(request, "SourceIdentifier")
                      .value_or(dictString(request, "TargetIdentifier").value_or(host.context().udid));
        password_ = dictString(options, "Password").has_value();
    }

    void run() {
        auto documents = host_.download({source_ + "/Status.plist", source_ + "/Manifest.plist", source_ + "/Manifest.db"},
                                        0.0, kKeepDocuments);
        if (!documents) return;
        std::map<std::string, const DownloadedFile*> byName;
        for (const auto& file : *documents)
            if (file.ok) byName[file.path.substr(file.path.rfind('/') + 1)] = &file;

        PlistPtr status = parsed(byName, "Status.plist");
        PlistPtr manifest = parsed(byName, "Manifest.plist");
        if (!isFinishedBackup(status.get()) || !manifest)
            return conclude(kErrorBackupUnreadable, "Error reading backup properties (MBErrorDomain/205)");
        if (dictBool(manifest.get(), "IsEncrypted").value_or(false) && !password_)
            return conclude(kErrorPassword, "Invalid password (MBErrorDomain/207)");
        std::optional<std::vector<ManifestRecord>> records;
        if (byName.count("Manifest.db")) records = readManifestDatabase(byName["Manifest.db"]->bytes);
        if (!records) return conclude(kErrorBackupUnreadable, "Error reading backup database (MBErrorDomain/205)");

        std::vector<Wanted> wanted;
        for (const auto& r : *records)
            if (r.flags == kManifestFile && r.fileID.size() > 2)
                wanted.push_back({source_ + "/" + r.fileID.substr(0, 2) + "/" + r.fileID, r.size});
        for (const auto& w : wanted) total_ += w.size.value_or(0);

        std::vector<Wanted> page;
        uint64_t pageBytes = 0;
        for (const Wanted& w : wanted) {
            if (!page.empty() && (page.size() == kPageFiles || pageBytes + w.size.value_or(0) > kPageBytes)) {
                if (!fetch(page)) return;
                page.clear();
                pageBytes = 0;
            }
            page.push_back(w);
            pageBytes += w.size.value_or(0);
        }
        if (!page.empty() && !fetch(page)) return;
        if (missing_ > 0)
            return conclude(kErrorRestore, std::to_string(missing_) +
                                               " files could not be restored (MBErrorDomain/104)");
        conclude(0, "");
    }

private:
    static PlistPtr parsed(std::map<std::string, const DownloadedFile*>& byName, const char* name) {
        auto it = byName.find(name);
        return it == byName.end() ? nullptr : parsePlist(it->second->bytes.data(), it->second->bytes.size());
    }

    bool fetch(const std::vector<Wanted>& page) {
        if (profile_.pageDelayMilliseconds)
            std::this_thread::sleep_for(std::chrono::milliseconds(profile_.pageDelayMilliseconds));
        std::vector<std::string> paths;
        uint64_t bytes = 0;
        for (const auto& w : page) {
            paths.push_back(w.path);
            bytes += w.size.value_or(0);
        }
        done_ += bytes;
        auto files = host_.download(paths, total_ ? 100.0 * double(done_) / double(total_) : 100.0, 0);
        if (!files) return false;
        std::map<std::string, const DownloadedFile*> got;
        for (const auto& f : *files) got[f.path] = &f;
        for (const auto& w : page) {
            auto it = got.find(w.path);
            const bool whole = it != got.end() && it->second->ok && (!w.size || it->second->size == *w.size);
            if (!whole) ++missing_;
        }
        return true;
    }

    void conclude(uint64_t code, const std::string& description) {
        if (host_.respond(code, description) && host_.disconnect()) host_.awaitHostLeaving();
    }

    BackupHost& host_;
    const BackupProfile profile_;
    std::string source_;
    bool password_ = false;
    uint64_t total_ = 0;
    uint64_t done_ = 0;
    size_t missing_ = 0;
};

}  // namespace

void runRestore(BackupHost& host, plist_t request) { RestoreRun(host, request).run(); }

}  // namespace zsim
