#include "core/backup_inquiry.h"

#include "core/backup_documents.h"
#include "core/backup_manifest_db.h"

namespace zsim {
namespace {

constexpr uint64_t kErrorBackupUnreadable = 205;
constexpr uint64_t kKeepDocuments = 256ull << 20;

std::string sourceOf(BackupHost& host, plist_t request) {
    return dictString(request, "SourceIdentifier")
        .value_or(dictString(request, "TargetIdentifier").value_or(host.context().udid));
}

// The files' bytes by name; nullopt when the connection is gone.
std::optional<std::vector<std::string>> fetch(BackupHost& host, const std::string& source,
                                              const std::vector<std::string>& names) {
    std::vector<std::string> paths;
    for (const auto& name : names) paths.push_back(source + "/" + name);
    auto files = host.download(paths, 0.0, kKeepDocuments);
    if (!files) return std::nullopt;
    std::vector<std::string> contents(names.size());
    for (const auto& file : *files)
        for (size_t i = 0; i < paths.size(); ++i)
            if (file.ok && file.path == paths[i]) contents[i] = file.bytes;
    return contents;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

}  // namespace

bool answerInfo(BackupHost& host, plist_t request) {
    auto contents = fetch(host, sourceOf(host, request), {"Status.plist", "Manifest.plist"});
    if (!contents) return false;
    PlistPtr status = parsePlist((*contents)[0].data(), (*contents)[0].size());
    PlistPtr manifest = parsePlist((*contents)[1].data(), (*contents)[1].size());
    if (!status || !manifest)
        return host.respond(kErrorBackupUnreadable, "Error reading backup properties (MBErrorDomain/205)");
    return host.respond(0, "", describeBackup(status.get(), manifest.get()));
}

bool answerList(BackupHost& host, plist_t request) {
    auto contents = fetch(host, sourceOf(host, request), {"Manifest.db"});
    if (!contents) return false;
    auto records = readManifestDatabase((*contents)[0]);
    if (!records) return host.respond(kErrorBackupUnreadable, "Error reading backup database (MBErrorDomain/205)");
    std::string csv = "Domain,Path,Size\n";
    for (const auto& r : *records) {
        if (r.flags != kManifestFile) continue;
        csv += csvField(r.domain) + "," + csvField(r.relativePath) + "," + std::to_string(r.size.value_or(0)) + "\n";
    }
    return host.respond(0, "", csv);
}

}  // namespace zsim
