// The Messages database of a backup (HomeDomain Library/SMS/sms.db): a real
// SQLite file in the iOS 11+ shape, with a few conversations.
#pragma once

#include <string>

namespace zsim {

std::string buildSmsDatabase();

}  // namespace zsim
