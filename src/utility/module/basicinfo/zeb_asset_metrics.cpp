// Turning the AirTraffic "AssetMetrics" parameters into sizes per kind.
#include "zeb_storage_query.h"

namespace zeb {

namespace {

struct Tally {
    int64_t count = 0;
    int64_t size = 0;
};

void addInteger(const PlistVariant& value, int64_t& into) {
    int64_t number = 0;
    if (value.ToInteger(number)) into += number;
}

// A kind's dictionary: its own figures plus those of its sub-kinds, each of
// which is also recorded under its own name.
Tally collectGroup(const CIOSDictionary& group, std::map<std::string, Tally>& kinds) {
    Tally total;
    for (const auto& [key, value] : group) {
        if (key == "_PhysicalSize") {
            addInteger(value, total.size);
        } else if (key == "_Count") {
            addInteger(value, total.count);
        } else if (key == "_PurgeableSize") {
            continue;
        } else if (value.tag() == VariantTag::Dictionary && value.dictionary()) {
            Tally sub;
            for (const auto& [subKey, subValue] : *value.dictionary()) {
                if (subKey == "_PhysicalSize") addInteger(subValue, sub.size);
                else if (subKey == "_Count") addInteger(subValue, sub.count);
            }
            total.size += sub.size;
            total.count += sub.count;
            kinds[key] = sub;
        }
    }
    return total;
}

bool take(std::map<std::string, Tally>& kinds, const char* name, Tally& into) {
    auto found = kinds.find(name);
    if (found == kinds.end()) return false;
    into = found->second;
    kinds.erase(found);
    return true;
}

void takeKind(std::map<std::string, Tally>& kinds, const char* name, int64_t& size, int64_t& count) {
    Tally tally;
    if (take(kinds, name, tally)) {
        size = tally.size;
        count = tally.count;
    }
}

}  // namespace

void CollectAssetMetrics(const CIOSDictionary& params, StorageReport& report) {
    std::map<std::string, Tally> kinds;
    for (const auto& [key, value] : params) {
        int64_t number = 0;
        if (value.tag() == VariantTag::Int64 || value.tag() == VariantTag::Int32) {
            value.ToInteger(number);
            kinds[key] = Tally{0, number};
        } else if (value.tag() == VariantTag::Dictionary && value.dictionary()) {
            kinds[key] = collectGroup(*value.dictionary(), kinds);
        }
    }
    Tally tally;
    if (take(kinds, "_PhysicalSize", tally)) report.data_physical_size = tally.size;
    if (take(kinds, "_FreeSize", tally)) report.data_free_size = tally.size;
    takeKind(kinds, "Application", report.application_size, report.application_count);
    takeKind(kinds, "Photo", report.photo_size, report.photo_count);
    takeKind(kinds, "CameraRoll", report.camera_roll_size, report.camera_roll_count);
    takeKind(kinds, "Movie", report.movie_size, report.movie_count);
    takeKind(kinds, "Book", report.book_size, report.book_count);
    takeKind(kinds, "Music", report.music_size, report.music_count);
    takeKind(kinds, "Ringtone", report.ringtone_size, report.ringtone_count);
    report.data_others_size = report.data_physical_size - report.data_free_size - report.application_size -
                              report.photo_size - report.camera_roll_size - report.movie_size - report.book_size -
                              report.music_size - report.ringtone_size;
    for (const auto& [name, kind] : kinds) {
        if (kind.count == 0 || kind.size == 0) continue;
        report.extras.emplace_back(name + "_Count", kind.count);
        report.extras.emplace_back(name + "_PhysicalSize", kind.size);
    }
}

void WriteStorageMembers(StorageReport& report) {
    auto& allocator = report.json.GetAllocator();
    auto add = [&](const std::string& name, int64_t value) {
        report.json.AddMember(rapidjson::Value(name.c_str(), allocator), rapidjson::Value(value), allocator);
    };
    add("Application_PhysicalSize", report.application_size);
    add("Application_Count", report.application_count);
    add("Photo_PhysicalSize", report.photo_size);
    add("Photo_Count", report.photo_count);
    add("CameraRoll_PhysicalSize", report.camera_roll_size);
    add("CameraRoll_Count", report.camera_roll_count);
    add("Movie_PhysicalSize", report.movie_size);
    add("Movie_Count", report.movie_count);
    add("Book_PhysicalSize", report.book_size);
    add("Book_Count", report.book_count);
    add("Music_PhysicalSize", report.music_size);
    add("Music_Count", report.music_count);
    add("Ringtone_PhysicalSize", report.ringtone_size);
    add("Ringtone_Count", report.ringtone_count);
    add("Data_FreeSize", report.data_free_size);
    add("Data_PhysicalSize", report.data_physical_size);
    add("Data_Others_PhysicalSize", report.data_others_size);
    for (const auto& [name, value] : report.extras) add(name, value);
}

}  // namespace zeb
