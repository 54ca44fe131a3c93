// Command 701: device items copied into folders on the computer. Files and
// folders keep their form; a ".epub" folder leaves as one zip file.
#include "zeb_afc.h"
#include "zeb_file_names.h"
#include "zeb_file_transfer.h"
#include "zeb_module_file.h"
#include "zeb_paths.h"
#include "zeb_zip.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

struct CopyItem {
    std::string name;
    std::string devicePath;
    std::string localFolder;
};

bool readItem(const rapidjson::Value& element, CopyItem& item) {
    if (!element.IsArray() || element.Size() != 3) return false;
    for (const auto& value : element.GetArray())
        if (!value.IsString()) return false;
    item.name = element[0].GetString();
    item.devicePath = element[1].GetString();
    item.localFolder = element[2].GetString();
    return !item.devicePath.empty() && !item.localFolder.empty();
}

// Copies one item; the local path it got, or empty when nothing was made.
fs::path copyItem(AFCConnectionRef afc, const CopyItem& item, const AfcFileInfo& info) {
    std::error_code error;
    fs::path folder(item.localFolder);
    fs::create_directories(folder, error);
    // The cleaned name is a single component, so the base stays in the folder.
    fs::path base = folder / zeb::cleanDisplayName(item.name);
    fs::path target = base;
    target += zeb::deviceExtension(item.devicePath);

    if (info.file_type == "S_IFREG") {
        fs::path unique = zeb::uniqueLocalName(target);
        if (unique.empty()) return {};
        zeb::AfcDownloadFile(afc, item.devicePath, &unique, nullptr);
        return unique;
    }
    if (!zeb::isEpubPath(item.devicePath)) {
        fs::path unique = zeb::uniqueLocalName(target);
        if (unique.empty()) return {};
        zeb::AfcCopyTreeToLocal(afc, item.devicePath, unique);
        return unique;
    }
    // A book folder: copied beside its zip, packed, and the copy removed.
    fs::path staged = zeb::uniqueLocalName(base);
    if (staged.empty()) return {};
    zeb::AfcCopyTreeToLocal(afc, item.devicePath, staged);
    fs::path unique = zeb::uniqueLocalName(target);
    if (!unique.empty()) zeb::writeZip(zeb::ZipFileList(staged), unique);
    fs::remove_all(staged, error);
    return unique;
}

}  // namespace

int64_t ZEBModuleFile::copyItems(CommandContext& context) {
    rapidjson::Document items;
    if (!context.readTail(items) || !items.IsArray()) return kCodeBadTail;
    auto store = zeb::openPieceStore(*context.device);
    if (!store) return kCodeServiceFailed;
    AFCConnectionRef afc = store->afc();

    int64_t result = kCodeSuccess;
    for (const auto& element : items.GetArray()) {
        CopyItem item;
        if (!readItem(element, item)) continue;
        if (zeb::hasParentComponent(item.devicePath)) {
            result = kCodeBadTail;  // refused: it would reach outside the media partition
            continue;
        }
        AfcFileInfo info;
        if (!zeb::AfcGetFileInfo(afc, item.devicePath, info)) continue;
        if (info.file_type != "S_IFREG" && info.file_type != "S_IFDIR") continue;
        fs::path got = copyItem(afc, item, info);
        if (got.empty()) continue;
        const std::string text = got.string();
        zeb::sendTransferEvent(context, 2, 0, 2, nullptr, text.data(), text.size());
    }
    return result;
}
