// Builds a device's file trees inside its state folder on first use.
#pragma once

#include <plist/plist.h>

#include <filesystem>
#include <string>

namespace zsim {

// The media partition (the root of the AFC service): the profile's media/
// tree when it has one, the usual folders a device always carries, and as
// many generated photos as the profile's Media.GeneratePhotos asks for.
bool buildMediaTree(const std::filesystem::path& mediaRoot, const std::filesystem::path& profileMedia,
                    plist_t profile, std::string& error);

// The whole file system of a jailbroken device, with the media partition at
// private/var/mobile/Media.
bool buildSystemTree(const std::filesystem::path& systemRoot, plist_t profile, std::string& error);

}  // namespace zsim
