#include "zeb_file_names.h"

#include <cctype>
#include <cstring>

namespace zeb {

bool hasParentComponent(const std::string& path) {
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        if (path.compare(start, end - start, "..") == 0 && end - start == 2) return true;
        start = end + 1;
    }
    return false;
}

bool namesDeviceFile(const std::string& path) {
    if (path.find('\0') != std::string::npos || hasParentComponent(path)) return false;
    const std::string last = path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
    return !last.empty() && last != ".";
}

std::string cleanDisplayName(const std::string& name) {
    std::string clean = name;
    for (char& c : clean) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || (byte < 0x80 && strchr("\\/:*?\"<|", c) != nullptr)) c = '_';
    }
    if (clean.empty() || clean == "." || clean == "..") clean = "_";
    return clean;
}

std::string deviceExtension(const std::string& devicePath) {
    size_t dot = devicePath.rfind('.');
    if (dot == std::string::npos) return {};
    std::string extension = devicePath.substr(dot);
    if (extension.find('/') != std::string::npos) return {};
    return extension;
}

bool isEpubPath(const std::string& devicePath) {
    std::string tail = devicePath;
    while (!tail.empty() && tail.back() == '/') tail.pop_back();
    if (tail.size() < 5) return false;
    std::string extension = tail.substr(tail.size() - 5);
    for (char& c : extension) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return extension == ".EPUB";
}

std::string deviceBaseName(const std::string& devicePath) {
    size_t slash = devicePath.rfind('/');
    return slash == std::string::npos ? devicePath : devicePath.substr(slash + 1);
}

}  // namespace zeb
