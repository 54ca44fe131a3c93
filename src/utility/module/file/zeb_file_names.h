// Names for the file module: which device paths it accepts, and how a
// display name from the parent becomes a local file name.
#pragma once

#include <string>

namespace zeb {

// True when a "/"-separated path has a ".." component: such paths are
// refused rather than sent to the device.
bool hasParentComponent(const std::string& path);
// True when a device path names a file that may be made there: no NUL
// byte (the device would cut the name at it), no ".." component, and a
// last component that is a name, not empty nor ".", so that the file and
// its temporary companions land inside the folder meant, under that name.
bool namesDeviceFile(const std::string& path);
// The display name as a single local file name: control bytes, DEL and
// \ / : * ? " < | become '_' (">" and bytes from 0x80 up stay), and a name
// that would still mean the folder itself or its parent becomes "_".
std::string cleanDisplayName(const std::string& name);
// The device path's extension with its dot (".jpg"), or empty; a dot in a
// folder name above the item is not an extension.
std::string deviceExtension(const std::string& devicePath);
// True when the path is a folder that is to leave as one zip: it ends in
// ".epub" in any case.
bool isEpubPath(const std::string& devicePath);
// The last component of a device path.
std::string deviceBaseName(const std::string& devicePath);

}  // namespace zeb
