// The AirTraffic metrics turned into the storage object's figures.
#include "zeb_storage_query.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <gtest/gtest.h>

namespace {

using Dict = std::shared_ptr<CIOSDictionary>;

Dict kind(int64_t count, int64_t size) {
    auto d = std::make_shared<CIOSDictionary>();
    d->Insert("_Count", PlistVariant::Int64(count));
    d->Insert("_PhysicalSize", PlistVariant::Int64(size));
    return d;
}

TEST(AssetMetrics, SubKindsAddToTheirGroupAndStandAsKindsOfTheirOwn) {
    CIOSDictionary params;
    Dict media = kind(1, 5);
    media->Insert("Ringtone", PlistVariant::Dictionary(kind(1, 2)));
    media->Insert("_PurgeableSize", PlistVariant::Int64(999));
    params.Insert("Music", PlistVariant::Dictionary(media));
    params.Insert("_PhysicalSize", PlistVariant::Int64(1000));
    params.Insert("_FreeSize", PlistVariant::Int64(400));
    StorageReport report;
    zeb::CollectAssetMetrics(params, report);
    EXPECT_EQ(report.music_size, 7);
    EXPECT_EQ(report.music_count, 2);
    EXPECT_EQ(report.ringtone_size, 2);
    EXPECT_EQ(report.ringtone_count, 1);
    EXPECT_EQ(report.data_physical_size, 1000);
    EXPECT_EQ(report.data_free_size, 400);
    // Others may count a sub-kind twice; it is what the parent is given.
    EXPECT_EQ(report.data_others_size, 1000 - 400 - 7 - 2);
    EXPECT_TRUE(report.extras.empty());
}

TEST(AssetMetrics, ATopLevelKindLaterInKeyOrderOverwritesASubKind) {
    CIOSDictionary params;
    Dict media = kind(1, 5);
    media->Insert("Ringtone", PlistVariant::Dictionary(kind(1, 2)));
    params.Insert("Music", PlistVariant::Dictionary(media));
    params.Insert("Ringtone", PlistVariant::Dictionary(kind(9, 90)));  // "R" sorts after "M"
    StorageReport report;
    zeb::CollectAssetMetrics(params, report);
    EXPECT_EQ(report.ringtone_count, 9);
    EXPECT_EQ(report.ringtone_size, 90);
}

TEST(AssetMetrics, UnknownKindsBecomeExtrasOnlyWithCountAndSize) {
    CIOSDictionary params;
    params.Insert("Widget", PlistVariant::Dictionary(kind(3, 100)));
    params.Insert("Empty", PlistVariant::Dictionary(kind(0, 5000)));   // no count: not reported
    params.Insert("Loose", PlistVariant::Int64(77));                    // a bare number has no count
    params.Insert("Text", PlistVariant::String("ignored"));
    StorageReport report;
    zeb::CollectAssetMetrics(params, report);
    ASSERT_EQ(report.extras.size(), 2u);
    EXPECT_EQ(report.extras[0].first, "Widget_Count");
    EXPECT_EQ(report.extras[0].second, 3);
    EXPECT_EQ(report.extras[1].first, "Widget_PhysicalSize");
    EXPECT_EQ(report.extras[1].second, 100);
}

TEST(AssetMetrics, MembersComeInTheParentsOrderAfterTheCycleCount) {
    StorageReport report;
    report.json.AddMember("CycleCount", 42, report.json.GetAllocator());
    report.extras.emplace_back("Widget_Count", 3);
    zeb::WriteStorageMembers(report);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    report.json.Accept(writer);
    const std::string json = text.GetString();
    EXPECT_EQ(json.find("{\"CycleCount\":42,\"Application_PhysicalSize\":0,\"Application_Count\":0,"), 0u) << json;
    EXPECT_NE(json.find("\"Data_FreeSize\":0,\"Data_PhysicalSize\":0,\"Data_Others_PhysicalSize\":0,\"Widget_Count\":3}"),
              std::string::npos)
        << json;
}

}  // namespace
