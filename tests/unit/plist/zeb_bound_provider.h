// Binds the provider once for a test program; the tests fail loudly if the
// provider can't be bound instead of passing on empty answers.
#pragma once

#include <gtest/gtest.h>

#include "zeb_mobile_export_fun.h"

inline CMobileExportFun& BoundProvider() {
    auto& fun = CMobileExportFun::GetInstance();
    EXPECT_TRUE(fun.Init()) << "the device library provider could not be bound";
    return fun;
}

// The value tree of an XML property list body.
#include "zeb_plist_bridge.h"
inline PlistVariant DecodeXml(const std::string& xml) {
    BoundProvider();
    PlistVariant v;
    EXPECT_TRUE(DecodeFrame(reinterpret_cast<const uint8_t*>(xml.data()), xml.size(), v)) << xml;
    return v;
}

inline std::string Plist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\">" +
           body + "</plist>";
}
