// Home-screen icons of the simulated apps: small PNG images drawn from the
// bundle identifier, so each app has its own picture and the same app
// always gets the same bytes.
#pragma once

#include <string>

namespace zsim {

// A square RGB PNG of `size` pixels: a background colour and an 8x8 block
// pattern, both derived from `seed`.
std::string makeIconPng(const std::string& seed, unsigned size = 120);

// The home-screen wallpaper: a vertical gradient, `width` x `height`.
std::string makeWallpaperPng(unsigned width, unsigned height);

}  // namespace zsim
